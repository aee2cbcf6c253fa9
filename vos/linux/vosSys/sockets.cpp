/* SPDX-License-Identifier: MIT */
/* The socket calls under portable names, with 32-bit lengths. Bad pointers are not checked: the kernel answers them
 * with EFAULT. */
#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <cerrno>

#include "vosSys.h"

namespace {

/* Calls with a length of the C library's type in place of the caller's. The length is written back whether or not the
 * call succeeded. A null pointer is passed on as it is. */
template <class Call>
int32_t withLength(uint32_t *callersLength, Call call) {
    if (callersLength == nullptr) return static_cast<int32_t>(call(nullptr));
    socklen_t length = *callersLength;
    const auto result = call(&length);
    *callersLength = length;
    return static_cast<int32_t>(result);
}

}  // namespace

int32_t vosSocket(int32_t iDomain, int32_t iType, int32_t iProtocol) { return socket(iDomain, iType, iProtocol); }

int32_t vosBind(int32_t iFd, const struct sockaddr *pAddr, uint32_t ulAddrLen) { return bind(iFd, pAddr, ulAddrLen); }

int32_t vosListen(int32_t iFd, int32_t iBacklog) { return listen(iFd, iBacklog); }

int32_t vosConnect(int32_t iFd, const struct sockaddr *pAddr, uint32_t ulAddrLen) {
    return connect(iFd, pAddr, ulAddrLen);
}

int32_t vosAccept(int32_t iFd, struct sockaddr *pAddr, uint32_t *pAddrLen) {
    return withLength(pAddrLen, [=](socklen_t *length) { return accept(iFd, pAddr, length); });
}

int32_t vosSelect(int32_t iCount, fd_set *pRead, fd_set *pWrite, fd_set *pExcept, struct timeval *pTimeout) {
    return select(iCount, pRead, pWrite, pExcept, pTimeout);
}

int32_t vosSend(int32_t iFd, const void *pBuf, int32_t iLen, int32_t iFlags) {
    if (iLen < 0) { /* as a size_t it would be nearly all memory */
        errno = EINVAL;
        return VOS_ERROR;
    }
    return static_cast<int32_t>(send(iFd, pBuf, static_cast<size_t>(iLen), iFlags));
}

int32_t vosSendto(int32_t iFd, const void *pBuf, uint32_t ulLen, int32_t iFlags, const struct sockaddr *pAddr,
                  uint32_t ulAddrLen) {
    return static_cast<int32_t>(sendto(iFd, pBuf, ulLen, iFlags, pAddr, ulAddrLen));
}

int32_t vosSendmsg(int32_t iFd, const struct msghdr *pMsg, int32_t iFlags) {
    return static_cast<int32_t>(sendmsg(iFd, pMsg, iFlags));
}

int32_t vosRecv(int32_t iFd, void *pBuf, uint32_t ulLen, int32_t iFlags) {
    return static_cast<int32_t>(recv(iFd, pBuf, ulLen, iFlags));
}

int32_t vosRecvfrom(int32_t iFd, void *pBuf, uint32_t ulLen, int32_t iFlags, struct sockaddr *pAddr,
                    uint32_t *pAddrLen) {
    return withLength(pAddrLen, [=](socklen_t *length) { return recvfrom(iFd, pBuf, ulLen, iFlags, pAddr, length); });
}

int32_t vosRecvmsg(int32_t iFd, struct msghdr *pMsg, int32_t iFlags) {
    return static_cast<int32_t>(recvmsg(iFd, pMsg, iFlags));
}

int32_t vosSetsockopt(int32_t iFd, int32_t iLevel, int32_t iOption, const void *pValue, uint32_t ulLen) {
    return setsockopt(iFd, iLevel, iOption, pValue, ulLen);
}

int32_t vosGetsockopt(int32_t iFd, int32_t iLevel, int32_t iOption, void *pValue, uint32_t *pLen) {
    return withLength(pLen, [=](socklen_t *length) { return getsockopt(iFd, iLevel, iOption, pValue, length); });
}

int32_t vosShutdown(int32_t iFd, int32_t iHow) { return shutdown(iFd, iHow); }

int32_t vosGetsockname(int32_t iFd, struct sockaddr *pAddr, uint32_t *pAddrLen) {
    return withLength(pAddrLen, [=](socklen_t *length) { return getsockname(iFd, pAddr, length); });
}

int32_t vosGetpeername(int32_t iFd, struct sockaddr *pAddr, uint32_t *pAddrLen) {
    return withLength(pAddrLen, [=](socklen_t *length) { return getpeername(iFd, pAddr, length); });
}

int32_t vosSetNonblocking(int32_t iFd, int32_t iOn) {
    const int flags = fcntl(iFd, F_GETFL);
    if (flags == -1) return VOS_ERROR;
    return fcntl(iFd, F_SETFL, iOn == 1 ? flags | O_NONBLOCK : flags & ~O_NONBLOCK);
}
