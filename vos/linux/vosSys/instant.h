/* SPDX-License-Identifier: MIT */
/* Instants of the clocks that time-outs are measured on. */
#ifndef VOS_SYS_INSTANT_H
#define VOS_SYS_INSTANT_H

#include <cstdint>
#include <ctime>

namespace vos {

/* Moves an instant by microseconds, in the arithmetic of the argument's type: a signed number may move it back. The
 * nanoseconds are brought below a second only when they exceed one: exactly one second of them is left standing, and
 * callers depend on what becomes of such an instant. */
template <class Microseconds>
void move(timespec &instant, Microseconds by) {
    constexpr long kNanosecondsPerSecond = 1'000'000'000;
    constexpr Microseconds kPerSecond = 1'000'000;
    instant.tv_sec += by / kPerSecond;
    instant.tv_nsec += long{by % kPerSecond} * 1000;
    if (instant.tv_nsec > kNanosecondsPerSecond) {
        instant.tv_sec += instant.tv_nsec / kNanosecondsPerSecond;
        instant.tv_nsec %= kNanosecondsPerSecond;
    }
}

/* The deadline of a wait; false when the clock cannot be read. */
inline bool deadlineAfter(uint32_t microseconds, timespec &deadline) {
    if (clock_gettime(CLOCK_REALTIME, &deadline) == -1) return false;
    move(deadline, static_cast<int32_t>(microseconds));
    return true;
}

}  // namespace vos

#endif
