/* SPDX-License-Identifier: MIT */
/**
 * @file vosLog.hpp
 * C++: lines of the log, checked against their arguments by the compiler.
 */
#ifndef VOS_LOG_HPP
#define VOS_LOG_HPP

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "vosBytes.hpp"
#include "vosDebug.h"
#include "vosMsg.h"

namespace vos {
inline namespace api1 {

/** Levels of the log; see vosDebug.h. */
enum class level : uint32_t { error = VOS_DEBUG_ERROR, trace = VOS_DEBUG_TRACE, event = VOS_DEBUG_EVENT };

/** What prints the line; see log(). */
class log_line {
  public:
    log_line(level of, const char *function) noexcept : level_(of), function_(function) {}

    __attribute__((format(printf, 2, 3))) void operator()(const char *format, ...) const noexcept {
        if ((__atomic_load_n(&g_ulVosDebugFlags, __ATOMIC_RELAXED) & static_cast<uint32_t>(level_)) == 0) return;
        const int before = errno;
        char plain[size];
        std::va_list arguments;
        va_start(arguments, format);
        errno = before; /* for %m */
        if (std::vsnprintf(plain, sizeof plain, format, arguments) < 0) plain[0] = '\0';
        va_end(arguments);
        char doubled[size];
        double_percents(plain, doubled);
        vosDebugPrintf(static_cast<uint32_t>(level_), "%s:%s", function_, doubled);
        errno = before;
    }

  private:
    static constexpr std::size_t size = 256; /* what vosDebugPrintf() keeps, NUL included */

    /* vosDebugPrintf() uses the finished line once more as a format. So that its cut never splits a pair, the text is
     * cut here to what is left behind the function's name. */
    void double_percents(const char *from, char *to) const noexcept {
        const std::size_t taken = std::strlen(function_) + 1;
        const std::size_t end = taken < size ? size - 1 - taken : 0;
        std::size_t length = 0;
        for (; *from != '\0'; ++from) {
            const std::size_t count = *from == '%' ? 2 : 1;
            if (length + count > end) break;
            for (std::size_t i = 0; i < count; ++i) to[length++] = *from;
        }
        to[length] = '\0';
    }

    level level_;
    const char *function_;
};

/**
 * Prints one line of the log, if its level is switched on. The line begins with the function's name.
 *
 *     vos::log(vos::level::error)("the door %u is %s", number, state);
 *
 * The format is that of printf(), and -Wformat (in -Wall) compares it with the arguments. Percent signs of the
 * arguments are shown as they are, unlike with vosDebugPrintf(). The message is cut at 255 characters, in which such a
 * percent sign counts twice. errno is left as it was. Any thread may log.
 */
[[nodiscard]] inline log_line log(level of, const char *function = __builtin_FUNCTION()) noexcept {
    return {of, function};
}

/** Prints a text to standard output as it is, and flushes; see vosPrintf(). */
inline void print(std::string_view line) noexcept {
    vosPrintf("%.*s", static_cast<int>(line.size()), line.data() != nullptr ? line.data() : "");
}

/** The debug flag word of this process, and of another one; see vosDebugConfig() and vosMsgDebugVos(). */
[[nodiscard]] inline uint32_t debug_flags() noexcept { return __atomic_load_n(&g_ulVosDebugFlags, __ATOMIC_RELAXED); }
inline void set_debug_flags(uint32_t flags) noexcept { vosDebugConfig(flags); }
inline result<void> set_debug_flags_of(c_text process, uint32_t flags) noexcept {
    return detail::with_errno(vosMsgDebugVos(process.get(), flags));
}

}  // namespace api1
}  // namespace vos

#endif
