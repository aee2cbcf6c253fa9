/* SPDX-License-Identifier: MIT */
/* The four functions that send or receive one datagram. Most other code uses them. */
#include <sys/socket.h>

#include "../base/log.h"
#include "message.h"

int32_t vos::sendStream(const Origin &origin, int32_t fd, const void *buffer, uint32_t size, const sockaddr *to,
                        uint32_t length) {
    const Caller me{"vosMsgSendStream"};
    trace(me, "%s:start.");
    if (size > kSendBuffer) error(me, "%s:ulSize %u is bigger than send buffer lenght %u.", size, kSendBuffer);
    const ssize_t count = sendTo(origin, fd, buffer, size, to, length);
    if (count < 0) return failedErrno(me, VOS_ERROR, "%s:sendto failed errno:%d(%s).");
    const auto sent = static_cast<uint32_t>(count);
    if (sent < size) error(me, "%s:sendto need send %u but send only %u.", size, sent);
    return ended(me, static_cast<int32_t>(sent));
}

int32_t vos::sendStream1(const Origin &origin, int32_t fd, const msghdr *message, uint32_t size) {
    const Caller me{"vosMsgSendStream1"};
    trace(me, "%s:start.");
    if (size > kSendBuffer) error(me, "%s:ulSize %u is bigger than send buffer lenght %u.", size, kSendBuffer);
    const ssize_t count = sendMessage(origin, fd, message);
    if (count < 0) return failedErrno(me, VOS_ERROR, "%s:sendmsg failed errno:%d(%s).");
    return ended(me, static_cast<int32_t>(count));
}

int32_t vos::receiveStream(const Origin &origin, int32_t fd, void *buffer, uint32_t size, sockaddr *from,
                           uint32_t *length) {
    const Caller me{"vosMsgRecvStream"};
    trace(me, "%s:start.");
    if (size > kReceiveBuffer) error(me, "%s:ulSize %u is bigger than recv buffer lenght %u.", size, kReceiveBuffer);
    const ssize_t count = receiveFrom(origin, fd, buffer, size, from, length);
    if (count == 0) return failed(me, VOS_ERROR, "%s:recvfrom failed due to peer shutdown.");
    if (count < 0) return failedErrno(me, VOS_ERROR, "%s:recvfrom failed errno:%d(%s).");
    return ended(me, static_cast<int32_t>(count));
}

/* A size above the limit is only traced here: the buffer for a running configuration may be of any size. */
int32_t vos::receiveStream1(const Origin &origin, int32_t fd, msghdr *message, uint32_t size) {
    const Caller me{"vosMsgRecvStream1"};
    trace(me, "%s:start.");
    if (size > kReceiveBuffer) trace(me, "%s:ulSize %u is bigger than recv buffer lenght %u.", size, kReceiveBuffer);
    const ssize_t count = receiveMessage(origin, fd, message);
    if (count < 0) return failedErrno(me, VOS_ERROR, "%s:recvmsg failed errno:%d(%s).");
    return ended(me, static_cast<int32_t>(count));
}

int32_t vosMsgSendStream(int32_t iSocketFd, const void *pBuf, uint32_t ulSize, const struct sockaddr *pAddr,
                         uint32_t ulAddrLen) {
    return vos::sendStream(vos::kApplication, iSocketFd, pBuf, ulSize, pAddr, ulAddrLen);
}

int32_t vosMsgSendStream1(int32_t iSocketFd, const struct msghdr *pMsg, uint32_t ulSize) {
    return vos::sendStream1(vos::kApplication, iSocketFd, pMsg, ulSize);
}

int32_t vosMsgRecvStream(int32_t iSocketFd, void *pBuf, uint32_t ulSize, struct sockaddr *pAddr, uint32_t *pAddrLen) {
    return vos::receiveStream(vos::kApplication, iSocketFd, pBuf, ulSize, pAddr, pAddrLen);
}

int32_t vosMsgRecvStream1(int32_t iSocketFd, struct msghdr *pMsg, uint32_t ulSize) {
    return vos::receiveStream1(vos::kApplication, iSocketFd, pMsg, ulSize);
}
