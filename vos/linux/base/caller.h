/* SPDX-License-Identifier: MIT */
/* The name of the function that a log line shows. */
#ifndef VOS_BASE_CALLER_H
#define VOS_BASE_CALLER_H

namespace vos {

/* `const Caller me;` at the top of a function captures that function's name. Code that several functions share has a
 * Caller as its parameter instead, so that each line shows the function that was called. */
struct Caller {
    const char *name;
    constexpr Caller(const char *n = __builtin_FUNCTION()) : name(n) {}
};

}  // namespace vos

#endif
