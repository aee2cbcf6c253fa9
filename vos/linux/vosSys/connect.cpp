/* SPDX-License-Identifier: MIT */
/* A connect that does not wait for ever. */
#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <cerrno>

#include "../base/log.h"
#include "vosSys.h"

namespace {

/* Waits until the connection has come about or failed. A descriptor that no set can hold counts as a failed wait. */
bool awaitWritable(int fd, timeval *timeout) {
    if (fd >= FD_SETSIZE) {
        errno = EINVAL;
        return false;
    }
    fd_set writable;
    FD_ZERO(&writable);
    FD_SET(fd, &writable);
    return select(fd + 1, nullptr, &writable, nullptr, timeout) >= 1;
}

}  // namespace

/* Only a connect that has been waited for to its end gets its flags back: whoever comes back earlier keeps a
 * non-blocking descriptor, and callers close it or set it up anew. */
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
        vosPrintf("%s:getsockopt SOL_SOCKET SO_ERROR failed.", me.name);
        return VOS_ERROR;
    }
    fcntl(iFd, F_SETFL, flags);
    return socketError == 0 ? VOS_OK : VOS_ERROR;
}
