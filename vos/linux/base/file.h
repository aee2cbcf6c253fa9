/* SPDX-License-Identifier: MIT */
/* Opening and finding files by paths that applications set. */
#ifndef VOS_BASE_FILE_H
#define VOS_BASE_FILE_H

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "uniqueFd.h"

namespace vos {

/* What a new file's mode is, unless somebody asks for another. */
inline constexpr mode_t kFileMode = 0666;

/* The stores' paths are exported pointers which an application may have set to null. The C library does not promise to
 * survive a null path, so it fails here, as the kernel would have it. */
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
