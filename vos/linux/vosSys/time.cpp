/* SPDX-License-Identifier: MIT */
/* Sleeping, the time of day, the name of the host, the uptime, deadlines. */
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "../base/log.h"
#include "instant.h"
#include "numbers.h"
#include "vosSys.h"

namespace {

constexpr int32_t kTicksPerSecond = 100;

}  // namespace

void vosSleep(uint32_t ulSeconds) {
    const vos::Caller me;
    if (sleep(ulSeconds) != 0) vos::errorErrno(me, "%s:sleep failed errno:%d(%s).");
}

void vosUSleep(uint32_t ulMicroseconds) {
    const vos::Caller me;
    if (usleep(ulMicroseconds) != 0) vos::errorErrno(me, "%s:usleep failed errno:%d(%s).");
}

int32_t vosGetTimeOfDay(struct timeval *pTime) {
    const vos::Caller me;
    if (pTime == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    return gettimeofday(pTime, nullptr);
}

int32_t vosHostNameGet(char *pName, int32_t iLen) {
    const vos::Caller me;
    if (pName == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    if (iLen < 0) {
        errno = EINVAL; /* as a size_t it would be nearly all memory */
        return VOS_ERROR;
    }
    return gethostname(pName, static_cast<size_t>(iLen));
}

int32_t vosHostNameSet(const char *pName, int32_t iLen) {
    const vos::Caller me;
    if (pName == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    return sethostname(pName, static_cast<size_t>(iLen));
}

int32_t vosUpTime(uint64_t *pSeconds, uint64_t *pHundredths) {
    const vos::Caller me;
    if (pSeconds == nullptr || pHundredths == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    const vos::UniqueFd upTime{open("/proc/uptime", O_RDONLY | O_CLOEXEC)};
    if (!upTime) return VOS_ERROR;
    vos::FileStart<100> start;
    start.readFrom(upTime); /* after a failed read the text is empty, and both figures are 0 */
    vos::Numbers in{start.text()};
    *pSeconds = in.number();
    in.word(".");
    *pHundredths = in.number(2);
    return VOS_OK;
}

uint64_t vosUpSeconds(void) {
    uint64_t seconds = 0;
    uint64_t hundredths = 0;
    vosUpTime(&seconds, &hundredths);
    return seconds;
}

int64_t tickGet(void) {
    uint64_t seconds = 0;
    uint64_t hundredths = 0;
    vosUpTime(&seconds, &hundredths);
    return static_cast<int64_t>(seconds * kTicksPerSecond + hundredths);
}

int32_t sysClkRateGet(void) { return kTicksPerSecond; }

int32_t vosClockHwGet(void * /*pReserved*/) { return VOS_ERROR; /* there is no hardware clock */ }

time_t vosTimeGet(time_t *pTime) { return time(pTime); }

int32_t vosTimeSet(const time_t *pTime) {
    const vos::Caller me;
    if (pTime == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    const timespec now = {.tv_sec = *pTime, .tv_nsec = 0};
    return clock_settime(CLOCK_REALTIME, &now);
}

int32_t vosJiffiesAfterUsecs(struct timespec *pDeadline, uint32_t ulMicroseconds) {
    const vos::Caller me;
    if (pDeadline == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    timespec deadline;
    if (clock_gettime(CLOCK_MONOTONIC, &deadline) == -1) return VOS_ERROR;
    vos::advance(deadline, ulMicroseconds);
    *pDeadline = deadline;
    return VOS_OK;
}

int32_t vosTimeAterEq(int64_t llSeconds, int64_t llNanoseconds) {
    timespec now;
    if (clock_gettime(CLOCK_MONOTONIC, &now) == -1) return 0;
    if (now.tv_sec != llSeconds) return now.tv_sec > llSeconds ? 1 : 0;
    return now.tv_nsec >= llNanoseconds ? 1 : 0;
}
