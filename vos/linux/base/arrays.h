/* SPDX-License-Identifier: MIT */
/* The alignment of exported arrays. */
#ifndef VOS_BASE_ARRAYS_H
#define VOS_BASE_ARRAYS_H

#include <cstddef>

namespace vos {

/* On x86-64 a program may take each array of 16 bytes or more that it only has a declaration of for aligned to 16
 * bytes. Its compiler then uses instructions that fail on any other address. */
inline constexpr std::size_t kArrayAlignment = 16;

}  // namespace vos

#endif
