/* SPDX-License-Identifier: MIT */
/* Consistency checks that end the process. */
#ifndef VOS_BASE_ASSERTION_H
#define VOS_BASE_ASSERTION_H

#include <cstdint>

#include "caller.h"

namespace vos {

/* Prints the assertion line, whatever the debug flags hold, and aborts. `area` is shown as the source, such as
 * "vos/linux/vosMsg". */
[[noreturn]] void assertionFailed(const char *expression, const char *area, Caller me, int line);

inline void check(bool holds, const char *expression, const char *area, Caller me, int line = __builtin_LINE()) {
    if (!holds) [[unlikely]]
        assertionFailed(expression, area, me, line);
}

/* Whether an object is aligned to a boundary. An application may define the object itself, and then the linker uses
 * that definition. So the address is hidden from the optimiser: it must not assume the alignment that our definition
 * has. */
inline bool aligned(const void *object, uintptr_t boundary) {
    auto address = reinterpret_cast<uintptr_t>(object);
    asm("" : "+r"(address));
    return address % boundary == 0;
}

}  // namespace vos

#endif
