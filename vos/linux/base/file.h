/* SPDX-License-Identifier: MIT */
/* Opening and finding files by paths that applications set. */
#ifndef VOS_BASE_FILE_H
#define VOS_BASE_FILE_H

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "uniqueFd.h"

namespace vos {

/* The mode of a new file, unless the caller gives another one. */
inline constexpr mode_t kFileMode = 0666;

/* The stores' paths are exported pointers which an application may have set to null. The C library need not accept a
 * null path, so the call fails here, with the errno that the kernel would set. */
inline bool named(const char *path) {
    if (path == nullptr) errno = EFAULT;
    return path != nullptr;
}

inline UniqueFd openFile(const char *path, int flags, mode_t mode = kFileMode) {
    return UniqueFd{named(path) ? open(path, flags | O_CLOEXEC, mode) : -1};
}

inline bool exists(const char *path) { return named(path) && access(path, F_OK) == 0; }

}  // namespace vos

#endif
