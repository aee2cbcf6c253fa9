/* SPDX-License-Identifier: MIT */
/* Instants on the clocks by which time-outs are measured. */
#ifndef VOS_SYS_INSTANT_H
#define VOS_SYS_INSTANT_H

#include <cstdint>
#include <ctime>

namespace vos {

/* Adds microseconds to an instant, in the arithmetic of their type: a signed number may be negative. The nanoseconds
 * are carried into the seconds only when they exceed one second. Exactly one second of nanoseconds stays: the C library
 * refuses a deadline with it (EINVAL), and that result is kept. */
template <class Microseconds>
void advance(timespec &instant, Microseconds by) {
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
    advance(deadline, static_cast<int32_t>(microseconds));
    return true;
}

}  // namespace vos

#endif
