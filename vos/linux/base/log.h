/* SPDX-License-Identifier: MIT */
/* How the library writes log lines: one call to log, one call to log and return a result. */
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

/* Bytes of a line's body: 255 characters and the NUL. A longer one is cut. */
inline constexpr std::size_t kLineBody = 256;

/* A text from outside as it is put into a log line: its percent signs are doubled, and count as two characters where
 * the line is cut. What is longer than a body is left out here. */
class ShownOutside {
  public:
    explicit ShownOutside(Outside outside);
    [[nodiscard]] const char *get() const { return text_.data(); }

  private:
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

/* Whether one of these bits is set in the debug flag word. Any thread may change the word at any time; a relaxed access
 * is the same plain load, without a data race. */
inline bool flagSet(uint32_t bits) { return (__atomic_load_n(&g_ulVosDebugFlags, __ATOMIC_RELAXED) & bits) != 0; }

/* Whether a level is switched on. It is asked before anything is computed for a line. */
inline bool logged(uint32_t level) { return flagSet(level); }

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
