/* SPDX-License-Identifier: MIT */
/* Stopping, rescheduling and describing processes. */
#include <sched.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "../base/log.h"
#include "roundRobin.h"
#include "vosProcess.h"

namespace {

constexpr std::size_t kDescriptionSize = 9; /* what the caller's buffer holds at least */

/* Applications show and compare these texts, so the spelling of the last one stays. */
const char *describe(int policy) {
    switch (policy) {
        case SCHED_FIFO:
            return "FIFO RT";
        case SCHED_RR:
            return "RR RT";
        case SCHED_OTHER:
            return "NORMAL";
        default:
            return "UNKKNOWN";
    }
}
static_assert(sizeof "UNKKNOWN" == kDescriptionSize);

int32_t readRealTimePriority(int32_t pid, int32_t *priority) {
    sched_param parameter{};
    if (sched_getparam(pid, &parameter) == -1) return VOS_ERROR;
    *priority = parameter.sched_priority;
    return VOS_OK;
}

/* A nice value of -1 cannot be distinguished from a failure, and counts as one. */
int32_t readNiceValue(int32_t pid, int32_t *priority) {
    const int nice = getpriority(PRIO_PROCESS, static_cast<id_t>(pid));
    if (nice == -1) return VOS_ERROR;
    *priority = nice;
    return VOS_OK;
}

/* Waits until a child has ended. Returns at once for a process that is not a child. A handled signal does not end the
 * wait. The status is not needed. */
void waitForEnd(int32_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) == -1 && errno == EINTR) continue;
}

}  // namespace

int32_t vosProcessDestroy(int32_t iPid) {
    const vos::Caller me;
    vos::trace(me, "%s:start.");
    if (kill(iPid, SIGTERM) == -1) return vos::failedErrno(me, VOS_ERROR, "%s:kill failed errno:%d(%s).");
    waitForEnd(iPid);
    return vos::ended(me, VOS_OK);
}

int32_t vosProcessSched(int32_t iPid, int32_t iPriority, uint32_t /*ulReserved*/) {
    const vos::Caller me;
    vos::trace(me, "%s:start.");
    if (!vos::setRoundRobin(iPid, iPriority))
        return vos::failedErrno(me, VOS_ERROR, "%s:sched_setscheduler failed errno:%d(%s).");
    return vos::ended(me, VOS_OK);
}

int32_t vosProcessDescGet(int32_t iPid, int32_t *pPriority, char *pDesc) {
    const vos::Caller me;
    if (pPriority == nullptr || pDesc == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    const int policy = sched_getscheduler(iPid);
    if (policy == -1) return VOS_ERROR;
    const char *const description = describe(policy);
    memcpy(pDesc, description, strlen(description) + 1);
    if (policy == SCHED_FIFO || policy == SCHED_RR) return readRealTimePriority(iPid, pPriority);
    return readNiceValue(iPid, pPriority);
}
