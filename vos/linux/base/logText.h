/* SPDX-License-Identifier: MIT */
/* A log text that has been compared with its arguments by the compiler. */
#ifndef VOS_BASE_LOG_TEXT_H
#define VOS_BASE_LOG_TEXT_H

#include <cstddef>
#include <type_traits>

namespace vos {

/* Text that comes from outside: a path, a peer's or an object's name. A finished log line is used once more as a
 * format, so such a text is shown with its percent signs doubled; see outside(). */
struct Outside {
    const char *text;
};

constexpr Outside outside(const char *text) { return Outside{text != nullptr ? text : "(null)"}; }

namespace logtext {

template <class Arg>
constexpr bool takes(bool isLong, char conversion) {
    if (conversion == 's')
        return std::is_same_v<Arg, const char *> || std::is_same_v<Arg, char *> || std::is_same_v<Arg, Outside>;
    const bool integer = conversion == 'd' || conversion == 'u' || conversion == 'x' || conversion == 'X';
    return integer && std::is_integral_v<Arg> && sizeof(Arg) == (isLong ? sizeof(long) : sizeof(int));
}

/* Whether the conversions of a text are those of the arguments, one by one. Also false for a "%" at the end. */
template <class... Args>
constexpr bool matches(const char *text) {
    bool (*const takers[])(bool, char) = {takes<Args>...};
    std::size_t taken = 0;
    for (; *text != '\0'; ++text) {
        if (*text != '%') continue;
        ++text;
        if (*text == '%') continue;
        bool isLong = false;
        for (; *text == 'l'; ++text) isLong = true;
        if (taken == sizeof...(Args) || !takers[taken++](isLong, *text)) return false;
    }
    return taken == sizeof...(Args);
}

/* Not constexpr on purpose: a constant expression that calls it does not compile. */
inline void conversionsAndArgumentsDiffer() {}

}  // namespace logtext

/* The first argument of every text is the caller's name. It is not listed here. */
template <class... Args>
struct LogText {
    const char *text;
    consteval LogText(const char *t) : text(t) {
        if (!logtext::matches<const char *, Args...>(t)) logtext::conversionsAndArgumentsDiffer();
    }
};

}  // namespace vos

#endif
