/* SPDX-License-Identifier: MIT */
#include "standardFds.h"

#include <fcntl.h>
#include <unistd.h>

namespace vosctl {

bool occupyStandardFds() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) != -1) continue;
        /* open() takes the lowest number that is free, which is this one. The direction of the first two is wrong. */
        if (open("/dev/null", fd == STDOUT_FILENO ? O_RDONLY : O_WRONLY) == -1) return false;
    }
    return true;
}

bool isStandardOutputOpen() {
    const int flags = fcntl(STDOUT_FILENO, F_GETFL);
    return flags != -1 && (flags & O_ACCMODE) != O_RDONLY;
}

}  // namespace vosctl
