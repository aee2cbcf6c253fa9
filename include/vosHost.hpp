/* SPDX-License-Identifier: MIT */
/**
 * @file vosHost.hpp
 * C++: the machine's clock, name and figures, and shell commands.
 */
#ifndef VOS_HOST_HPP
#define VOS_HOST_HPP

#include <sys/wait.h>

#include <chrono>
#include <ratio>

#include "vosBytes.hpp"
#include "vosSys.h"

namespace vos {
inline namespace api1 {

/**
 * A clock of std::chrono that counts from the machine's start, in the ticks of a hundredth of a second that tickGet()
 * counts. It goes on while the machine is suspended, and setting the time of day does not move it. Each now() reads
 * "/proc/uptime": where that is too slow take std::chrono::steady_clock.
 */
struct uptime_clock {
    using rep = int64_t;
    using period = std::centi;
    using duration = std::chrono::duration<rep, period>;
    using time_point = std::chrono::time_point<uptime_clock>;
    static constexpr bool is_steady = true;

    /** The machine's start when the time cannot be read; uptime() tells such a failure. @threads any */
    [[nodiscard]] static time_point now() noexcept { return time_point{duration{tickGet()}}; }
};

/** The time since the machine's start. @return VOS_ERROR with errno when it cannot be read. @threads any */
[[nodiscard]] inline result<uptime_clock::duration> uptime() noexcept {
    uint64_t seconds = 0, hundredths = 0;
    const int32_t code = vosUpTime(&seconds, &hundredths);
    if (code != VOS_OK) return detail::with_errno(code);
    return uptime_clock::duration{static_cast<int64_t>(seconds * 100 + hundredths)};
}

/** Sets the system's clock, rounded down to a second. @return VOS_ERROR with errno. @threads any */
inline result<void> set_system_time(std::chrono::system_clock::time_point time) noexcept {
    const auto whole = std::chrono::floor<std::chrono::seconds>(time);
    const time_t seconds = std::chrono::system_clock::to_time_t(whole);
    return detail::with_errno(vosTimeSet(&seconds));
}

/** A POSIX rule such as "CST-8"; see vosTimeZoneSet(). */
inline result<void> set_time_zone(c_text rule) noexcept { return detail::done(vosTimeZoneSet(rule.get())); }

namespace host {

/** The host's name. @return VOS_ERROR with errno. @threads any */
[[nodiscard]] inline result<text<65>> name() noexcept {
    text<65> found;
    const int32_t code = vosHostNameGet(found.raw(), sizeof found);
    if (code != VOS_OK) return detail::with_errno(code);
    return found;
}
/** @param name at most 64 characters @return VOS_ERROR with errno, EINVAL when it is longer. @threads any */
inline result<void> set_name(std::string_view name) noexcept {
    if (name.size() > 64) return error{VOS_ERROR, EINVAL};
    return detail::with_errno(
        vosHostNameSet(name.data() != nullptr ? name.data() : "", static_cast<int32_t>(name.size())));
}
/** All memory of the machine in megabytes (2^20 bytes). @threads any */
[[nodiscard]] inline uint32_t memory_total() noexcept { return vosMemoryTotalGet(); }
/** The memory that nothing uses in megabytes, caches counted as used. @threads any */
[[nodiscard]] inline uint32_t memory_free() noexcept { return vosMemoryFreeGet(); }
/** How idle the processors are, in percent: measured during one second, in which the call blocks. @threads any */
[[nodiscard]] inline uint32_t measure_idle() noexcept { return vosCpuIdleGet(); }

}  // namespace host

namespace shell {

/** What the command may do with the terminal that is standard input. */
enum class terminal : uint32_t {
    plain = VOS_SHELL_PLAIN,            /**< It is left as it is. */
    interactive = VOS_SHELL_INTERACTIVE /**< Its keys make signals, and it echoes. */
};

/**
 * Runs a command line with "/bin/sh -c" and waits for its end; see vosSystem() for the signals that are ignored
 * meanwhile.
 *
 * @return the exit status: 0 to 255; 127 also when the shell has not found the command; 128 and the signal's number
 * when a signal has ended the shell. VOS_ERROR with errno when it could not be started or waited for
 * @threads as vosSystem()
 */
[[nodiscard]] inline result<int> run(c_text command, terminal mode = terminal::plain) noexcept {
    int32_t status = 0;
    const int32_t code = vosSystem2(command.get(), static_cast<uint32_t>(mode), &status);
    if (code != VOS_OK) return error{code, code == VOS_ERROR ? errno : 0};
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

/** Starts a command line and does not wait; see vosSystemNoWait() for who reaps it. @return VOS_ERROR with errno */
inline result<void> start(c_text command) noexcept { return detail::with_errno(vosSystemNoWait(command.get())); }

}  // namespace shell

}  // namespace api1
}  // namespace vos

#endif
