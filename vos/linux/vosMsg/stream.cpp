/* SPDX-License-Identifier: MIT */
/* The four functions that send or receive one datagram. Most other code uses them. */
#include <sys/socket.h>

#include "../base/log.h"
#include "message.h"

int32_t vosMsgSendStream(int32_t iSocketFd, const void *pBuf, uint32_t ulSize, const struct sockaddr *pAddr,
                         uint32_t ulAddrLen) {
    const vos::Caller me;
    vos::trace(me, "%s:start.");
    if (ulSize > vos::kSendBuffer)
        vos::error(me, "%s:ulSize %u is bigger than send buffer lenght %u.", ulSize, vos::kSendBuffer);
    const ssize_t count = sendto(iSocketFd, pBuf, ulSize, 0, pAddr, ulAddrLen);
    if (count < 0) return vos::failedErrno(me, VOS_ERROR, "%s:sendto failed errno:%d(%s).");
    const auto sent = static_cast<uint32_t>(count);
    if (sent < ulSize) vos::error(me, "%s:sendto need send %u but send only %u.", ulSize, sent);
    return vos::ended(me, static_cast<int32_t>(sent));
}

int32_t vosMsgSendStream1(int32_t iSocketFd, const struct msghdr *pMsg, uint32_t ulSize) {
    const vos::Caller me;
    vos::trace(me, "%s:start.");
    if (ulSize > vos::kSendBuffer)
        vos::error(me, "%s:ulSize %u is bigger than send buffer lenght %u.", ulSize, vos::kSendBuffer);
    const ssize_t count = sendmsg(iSocketFd, pMsg, 0);
    if (count < 0) return vos::failedErrno(me, VOS_ERROR, "%s:sendmsg failed errno:%d(%s).");
    return vos::ended(me, static_cast<int32_t>(count));
}

int32_t vosMsgRecvStream(int32_t iSocketFd, void *pBuf, uint32_t ulSize, struct sockaddr *pAddr, uint32_t *pAddrLen) {
    const vos::Caller me;
    vos::trace(me, "%s:start.");
    if (ulSize > vos::kReceiveBuffer)
        vos::error(me, "%s:ulSize %u is bigger than recv buffer lenght %u.", ulSize, vos::kReceiveBuffer);
    const ssize_t count = recvfrom(iSocketFd, pBuf, ulSize, 0, pAddr, pAddrLen);
    if (count == 0) return vos::failed(me, VOS_ERROR, "%s:recvfrom failed due to peer shutdown.");
    if (count < 0) return vos::failedErrno(me, VOS_ERROR, "%s:recvfrom failed errno:%d(%s).");
    return vos::ended(me, static_cast<int32_t>(count));
}

/* A size above the limit is only traced here: the buffer for a running configuration may be of any size. */
int32_t vosMsgRecvStream1(int32_t iSocketFd, struct msghdr *pMsg, uint32_t ulSize) {
    const vos::Caller me;
    vos::trace(me, "%s:start.");
    if (ulSize > vos::kReceiveBuffer)
        vos::trace(me, "%s:ulSize %u is bigger than recv buffer lenght %u.", ulSize, vos::kReceiveBuffer);
    const ssize_t count = recvmsg(iSocketFd, pMsg, 0);
    if (count < 0) return vos::failedErrno(me, VOS_ERROR, "%s:recvmsg failed errno:%d(%s).");
    return vos::ended(me, static_cast<int32_t>(count));
}
