/* SPDX-License-Identifier: MIT */
#include "standardFds.h"

#include <fcntl.h>
#include <unistd.h>

namespace vosctl {

bool occupyStandardFds() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) != -1) continue;
        /* open() takes the lowest free number, which is this one. Descriptors 0 and 1 are opened in the wrong direction
         * on purpose: reading and writing fail then. */
        if (open("/dev/null", fd == STDOUT_FILENO ? O_RDONLY : O_WRONLY) == -1) return false;
    }
    return true;
}

bool isStandardOutputOpen() {
    const int flags = fcntl(STDOUT_FILENO, F_GETFL);
    return flags != -1 && (flags & O_ACCMODE) != O_RDONLY;
}

}  // namespace vosctl
