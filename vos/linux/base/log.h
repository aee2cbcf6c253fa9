/* SPDX-License-Identifier: MIT */
/* The house's way to write log lines: one call to log, one call to log and return. */
#ifndef VOS_BASE_LOG_H
#define VOS_BASE_LOG_H

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "caller.h"
#include "logText.h"
#include "vosDebug.h"

namespace vos {

/* A text from outside as it may stand in a log line. Longer than a line's body is never shown, so it is cut. */
class ShownOutside {
  public:
    explicit ShownOutside(Outside outside);
    [[nodiscard]] const char *get() const { return text_.data(); }

  private:
    static constexpr std::size_t kLineBody = 256;
    std::array<char, 2 * kLineBody> text_;
};

namespace logargument {

template <class Arg>
struct Shown {
    Arg value;
    [[nodiscard]] Arg get() const { return value; }
};
template <class Arg>
Shown<Arg> shown(Arg arg) {
    return {arg};
}
inline ShownOutside shown(Outside text) { return ShownOutside{text}; }

}  // namespace logargument

/* Whether a level is switched on: one load and one AND, before anything is evaluated for a line. The word is plain
 * data that any thread may change; a relaxed access is the same plain load, without a data race. */
inline bool logged(uint32_t level) { return (__atomic_load_n(&g_ulVosDebugFlags, __ATOMIC_RELAXED) & level) != 0; }

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
template <class... Args>
void log(uint32_t level, Caller me, LogText<std::type_identity_t<Args>...> text, Args... args) {
    if (logged(level)) [[unlikely]]
        vosDebugPrintf(level, text.text, me.name, logargument::shown(args).get()...);
}
#pragma GCC diagnostic pop

template <class... Args>
void trace(Caller me, LogText<std::type_identity_t<Args>...> text, Args... args) {
    log<Args...>(VOS_DEBUG_TRACE, me, text, args...);
}

template <class... Args>
void error(Caller me, LogText<std::type_identity_t<Args>...> text, Args... args) {
    log<Args...>(VOS_DEBUG_ERROR, me, text, args...);
}

/* As error(), for texts that end in "errno:%d(%s)": errno and its text are appended to the arguments. */
template <class... Args>
[[gnu::cold]] void errorErrno(Caller me, LogText<std::type_identity_t<Args>..., int, const char *> text, Args... args) {
    const int failure = errno;
    if (logged(VOS_DEBUG_ERROR))
        log<Args..., int, const char *>(VOS_DEBUG_ERROR, me, text, args..., failure, strerror(failure));
    errno = failure;
}

template <class... Args>
[[nodiscard, gnu::cold]] int32_t failed(Caller me, int32_t result, LogText<std::type_identity_t<Args>...> text,
                                        Args... args) {
    error<Args...>(me, text, args...);
    return result;
}

template <class... Args>
[[nodiscard, gnu::cold]] int32_t failedErrno(Caller me, int32_t result,
                                             LogText<std::type_identity_t<Args>..., int, const char *> text,
                                             Args... args) {
    errorErrno<Args...>(me, text, args...);
    return result;
}

/* The exit line of an operation: `return ended(me, result);`. */
[[nodiscard]] inline int32_t ended(Caller me, int32_t result) {
    trace(me, "%s:end return %d.", result);
    return result;
}

}  // namespace vos

#endif
