/* SPDX-License-Identifier: MIT */
/* Coarse figures of the system: kernel build time, memory, idle time. */
#include <sys/sysinfo.h>
#include <sys/utsname.h>

#include <algorithm>
#include <numeric>
#include <optional>

#include "../base/log.h"
#include "numbers.h"
#include "vosSys.h"

namespace {

constexpr uint32_t kAllIdle = 100; /* also the result when the figure is not known */
constexpr unsigned kMegabyteShift = 20;

/* What follows the third blank of "#1 SMP PREEMPT Tue Mar 3 ...". */
std::optional<std::string_view> behindThirdBlank(std::string_view version) {
    for (int blank = 0; blank < 3; ++blank) {
        const std::size_t at = version.find(' ');
        if (at == std::string_view::npos) return std::nullopt;
        version.remove_prefix(at + 1);
    }
    return version;
}

using SystemInfo = struct sysinfo;

/* A memory figure in megabytes. The kernel's unit word is not applied: it is one byte on 64-bit machines. */
uint32_t megabytes(vos::Caller me, unsigned long SystemInfo::*figure) {
    SystemInfo info;
    if (sysinfo(&info) == -1) {
        vos::errorErrno(me, "%s:sysinfo failed errno:%d(%s).");
        return 0;
    }
    return static_cast<uint32_t>(info.*figure >> kMegabyteShift);
}

/* Ticks since the start, as 32-bit counters that wrap. */
struct CpuTicks {
    uint32_t total = 0;
    uint32_t idle = 0;
};

CpuTicks parseCpuTicks(std::string_view text) {
    enum { User, Nice, System, Idle, IoWait, Irq, SoftIrq, Steal, Kinds };
    vos::Numbers in{text};
    in.word("cpu");
    std::array<uint32_t, Kinds> ticks;
    for (uint32_t &each : ticks) each = static_cast<uint32_t>(in.number());
    return {std::accumulate(ticks.begin(), ticks.end(), 0U), ticks[Idle]};
}

/* `which` is 0 for the reading before the pause and 1 for the one after it. */
std::optional<CpuTicks> readCpuTicks(vos::Caller me, int which) {
    const vos::UniqueFd stat{open("/proc/stat", O_RDONLY | O_CLOEXEC)};
    if (!stat) {
        vos::errorErrno(me, "%s:open /proc/stat %d failed errno:%d(%s).", which);
        return std::nullopt;
    }
    vos::FileStart<256> start;
    if (start.readFrom(stat) < 0) {
        vos::errorErrno(me, "%s:read /proc/stat %d failed errno:%d(%s).", which);
        return std::nullopt;
    }
    return parseCpuTicks(start.text());
}

}  // namespace

int32_t vosBuildTimeGet(uint32_t /*ulReserved*/, char *pBuf, uint32_t /*ulBufLen*/) {
    const vos::Caller me;
    if (pBuf == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    pBuf[0] = '\0';
    struct utsname names;
    if (uname(&names) == -1) return vos::failedErrno(me, VOS_ERROR, "%s:uname failed errno:%d(%s).");
    const auto built = behindThirdBlank(names.version);
    if (!built) return VOS_ERROR;
    *std::copy(built->begin(), built->end(), pBuf) = '\0';
    return VOS_OK;
}

uint32_t vosMemoryTotalGet(void) { return megabytes({}, &SystemInfo::totalram); }

uint32_t vosMemoryFreeGet(void) { return megabytes({}, &SystemInfo::freeram); }

uint32_t vosCpuIdleGet(void) {
    const vos::Caller me;
    const auto before = readCpuTicks(me, 0);
    if (!before) return kAllIdle;
    sleep(1);
    const auto after = readCpuTicks(me, 1);
    if (!after) return kAllIdle;
    const uint32_t elapsed = after->total - before->total;
    return elapsed == 0 ? 0 : (after->idle - before->idle) * 100U / elapsed;
}
