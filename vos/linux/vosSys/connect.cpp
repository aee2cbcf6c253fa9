/* SPDX-License-Identifier: MIT */
/* A connect with a time limit. */
#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdlib>
#include <memory>

#include "../base/block.h"
#include "../base/errnoKeeper.h"
#include "../base/log.h"
#include "vosSys.h"

namespace {

/* Waits until the connection is made or has failed. When that cannot be found out, errno says why. An fd_set ends at
 * descriptor 1023, but the kernel accepts a set of any length, so a larger descriptor gets a larger set. */
bool awaitWritable(int fd, timeval *timeout) {
    const auto number = static_cast<std::size_t>(fd);
    fd_set small;
    FD_ZERO(&small);
    std::unique_ptr<fd_mask[], vos::FreeBlock> large;
    if (fd >= FD_SETSIZE) {
        large.reset(static_cast<fd_mask *>(calloc(number / NFDBITS + 1, sizeof(fd_mask))));
        if (!large) return false;
    }
    fd_mask *const words = large ? large.get() : small.fds_bits;
    words[number / NFDBITS] |= fd_mask{1} << (number % NFDBITS); /* FD_SET() would end the process for a large number */
    const int ready = select(fd + 1, nullptr, static_cast<fd_set *>(static_cast<void *>(words)), nullptr, timeout);
    if (ready == 0) errno = ETIMEDOUT;
    return ready >= 1;
}

int32_t failedWith(int reason) {
    errno = reason;
    return VOS_ERROR;
}

}  // namespace

/* The flags are restored only when the outcome of the connect is known. An earlier return leaves the descriptor
 * non-blocking; callers close it or set its flags again. */
int32_t vosConnectWithTimeout(int32_t iFd, const struct sockaddr *pAddr, uint32_t ulAddrLen, struct timeval *pTimeout) {
    const vos::Caller me;
    const int flags = fcntl(iFd, F_GETFL);
    if (flags == -1 || fcntl(iFd, F_SETFL, flags | O_NONBLOCK) == -1) return VOS_ERROR;
    if (connect(iFd, pAddr, ulAddrLen) == 0) return VOS_OK;
    if (errno != EINPROGRESS) return VOS_ERROR;
    if (!awaitWritable(iFd, pTimeout)) return VOS_ERROR;
    int32_t socketError = -1;
    socklen_t length = sizeof socketError;
    if (getsockopt(iFd, SOL_SOCKET, SO_ERROR, &socketError, &length) == -1) {
        const vos::ErrnoKeeper keep;
        vosPrintf("%s:getsockopt SOL_SOCKET SO_ERROR failed.", me.name);
        return VOS_ERROR;
    }
    fcntl(iFd, F_SETFL, flags);
    return socketError == 0 ? VOS_OK : failedWith(socketError);
}
