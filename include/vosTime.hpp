/* SPDX-License-Identifier: MIT */
/**
 * @file vosTime.hpp
 * C++: time-outs and intervals. The C calls differ in units and in the meaning of 0; here every call means the same.
 */
#ifndef VOS_TIME_HPP
#define VOS_TIME_HPP

#include <chrono>
#include <cstdint>
#include <ratio>
#include <type_traits>

#include "vosSys.h"

namespace vos {
inline namespace api1 {

namespace detail {

/* The longest duration in microseconds: 2^32 - 1 ms, which is 49 days and 17 hours. */
inline constexpr int64_t longest_us = int64_t{0xFFFFFFFF} * 1000;

/* Rounded up. Less than nothing, and what is not a number, is 0; more than the longest is the longest. */
template <class Rep, class Period>
constexpr int64_t ceil_us(const std::chrono::duration<Rep, Period> &duration) noexcept {
    static_assert(std::ratio_greater_equal_v<Period, std::pico>, "units finer than picoseconds are not supported");
    using wide = std::chrono::duration<std::common_type_t<Rep, int64_t>, Period>;
    constexpr auto longest = std::chrono::duration_cast<wide>(std::chrono::microseconds{longest_us});
    if (!(duration.count() > Rep{0})) return 0;
    const wide converted{duration.count()};
    if (converted >= longest + wide{1}) return longest_us;
    const auto up = std::chrono::ceil<std::chrono::microseconds>(converted).count();
    return up < longest_us ? static_cast<int64_t>(up) : longest_us;
}

constexpr uint32_t ceil_ms(int64_t us) noexcept { return static_cast<uint32_t>((us + 999) / 1000); }

}  // namespace detail

/**
 * How long a call may wait: a duration of std::chrono, vos::forever or vos::no_wait. A plain number does not compile.
 *
 * A duration is rounded up to the unit of the call. A negative one is no_wait. The longest is 4294967295 ms (49 days
 * and 17 hours); a longer one is taken as that. A call that the C interface gives less, such as a semaphore, waits
 * again.
 */
class timeout {
  public:
    template <class Rep, class Period>
    constexpr timeout(std::chrono::duration<Rep, Period> duration) noexcept : us_(detail::ceil_us(duration)) {}
    [[nodiscard]] static constexpr timeout unlimited() noexcept { return timeout{nullptr}; }

    [[nodiscard]] constexpr bool is_forever() const noexcept { return us_ < 0; }
    [[nodiscard]] constexpr bool is_no_wait() const noexcept { return us_ == 0; }
    /** Microseconds; not for vos::forever. */
    [[nodiscard]] constexpr int64_t us() const noexcept { return us_; }

    /** As the receive calls take it: milliseconds, 0 does not wait, 0xFFFFFFFF waits for ever. */
    [[nodiscard]] constexpr uint32_t receive_ms() const noexcept {
        if (is_forever()) return VOS_WAIT_FOREVER;
        const uint32_t ms = detail::ceil_ms(us_);
        return ms < VOS_WAIT_FOREVER ? ms : VOS_WAIT_FOREVER - 1;
    }
    /** As the send calls take it: milliseconds, 0 waits for ever. They cannot look without waiting, so vos::no_wait is
     *  the shortest time that they know, 1 ms. */
    [[nodiscard]] constexpr uint32_t send_ms() const noexcept {
        if (is_forever()) return 0;
        return is_no_wait() ? 1 : detail::ceil_ms(us_);
    }

  private:
    constexpr explicit timeout(std::nullptr_t) noexcept : us_(-1) {}
    int64_t us_; /* -1: for ever */
};

/** Waits without a limit. */
inline constexpr timeout forever = timeout::unlimited();
/** Does not wait. */
inline constexpr timeout no_wait{std::chrono::microseconds{0}};

/** The time until something happens, or between two times: a duration of std::chrono, rounded up to milliseconds.
 *  The longest is 4294967294 ms. vos::forever does not compile here. */
class interval {
  public:
    template <class Rep, class Period>
    constexpr interval(std::chrono::duration<Rep, Period> duration) noexcept
        : ms_(detail::ceil_ms(detail::ceil_us(duration))) {
        if (ms_ == VOS_WAIT_FOREVER) --ms_;
    }
    [[nodiscard]] constexpr uint32_t ms() const noexcept { return ms_; }

  private:
    uint32_t ms_;
};

namespace detail {

/* The longest time-out of a take in microseconds: a larger one is a negative number to the C calls. */
inline constexpr int64_t longest_take_us = 0x7FFFFFFF;

/* Takes with a time-out of any length, in as many calls as that needs. */
template <class Take>
int32_t take_for(timeout wait, Take take) {
    if (wait.is_forever()) return take(VOS_WAIT_FOREVER);
    for (int64_t left = wait.us();;) {
        const int64_t part = left < longest_take_us ? left : longest_take_us;
        const int32_t code = take(static_cast<uint32_t>(part));
        left -= part;
        if (code != VOS_ERR_TIMEOUT || left == 0) return code;
    }
}

}  // namespace detail

}  // namespace api1
}  // namespace vos

#endif
