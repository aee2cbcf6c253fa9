/* SPDX-License-Identifier: MIT */
/* The name of the function that speaks in a log line. */
#ifndef VOS_BASE_CALLER_H
#define VOS_BASE_CALLER_H

namespace vos {

/* Declared as `const Caller me;` at the top of a function it captures that function's name. Code shared by twin
 * functions takes a Caller as its parameter instead, so that each twin speaks under its own name. */
struct Caller {
    const char *name;
    constexpr Caller(const char *n = __builtin_FUNCTION()) : name(n) {}
};

}  // namespace vos

#endif
