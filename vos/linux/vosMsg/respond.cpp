/* SPDX-License-Identifier: MIT */
/* Answers an application message. */
#include <sys/socket.h>
#include <sys/uio.h>

#include "../base/log.h"
#include "address.h"
#include "message.h"
#include "transfer.h"
#include "vosMsgChannel.h"

namespace {

using vos::Caller;
using vos::kHeadSize;

struct Answer {
    VOS_MSG_HEAD head;
    const void *payload;
    uint32_t size;
    [[nodiscard]] std::size_t total() const { return std::size_t{size} + kHeadSize; }
};

/* What differs between the channels' answers. */
struct Kind {
    uint32_t value1; /* fixed by the protocol; no requester looks at it */
    bool limited;    /* to what a message buffer holds */
    uint8_t *buffer; /* where header and payload are put together; null: they are sent from where they are */
};

constinit const Kind kMainAnswer{255, true, nullptr};
constinit const Kind kSecondAnswer{0, true, g_vosMsgBufferResp_thread};

/* The requester's address, from the record. */
struct Destination {
    const sockaddr *address;
    socklen_t length;
};

Destination destinationOf(const VOS_MSG_PEER &peer) {
    return {reinterpret_cast<const sockaddr *>(&peer.stAddr), vos::answerLength(peer.ulAddrLen)};
}

ssize_t sendGathered(int fd, const Answer &answer, const Destination &to) {
    /* The system call's record has no const, and sending writes through none of these. */
    iovec pieces[] = {{const_cast<VOS_MSG_HEAD *>(&answer.head), kHeadSize},
                      {const_cast<void *>(answer.payload), answer.size}};
    msghdr message{};
    message.msg_name = const_cast<sockaddr *>(to.address);
    message.msg_namelen = to.length;
    message.msg_iov = pieces;
    message.msg_iovlen = std::size(pieces);
    return vos::sendMessage(vos::kAnswer, fd, &message);
}

/* The payload is moved first: it may lie in the same buffer, also where the header goes. */
ssize_t sendFrom(uint8_t *buffer, int fd, const Answer &answer, const Destination &to) {
    if (answer.payload != buffer + kHeadSize) memmove(buffer + kHeadSize, answer.payload, answer.size);
    memcpy(buffer, &answer.head, kHeadSize);
    return vos::sendTo(vos::kAnswer, fd, buffer, answer.total(), to.address, to.length);
}

int32_t respond(Caller me, const Kind &kind, uint32_t code, const void *payload, uint32_t size,
                const VOS_MSG_PEER *peer) {
    vos::trace(me, "%s:start.");
    if (payload == nullptr || peer == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    if (kind.limited && size > vos::kMaxPayload) return vos::failed(me, VOS_ERR_TOO_LONG, "%s:ulMsgSize too long.");
    if (peer->ulNoReturn == VOS_MSG_NO_ANSWER) {
        vos::trace(me, "%s:don't need return.");
        return VOS_OK;
    }
    const Answer answer{{.ulType = VOS_MSG_TYPE_SELF,
                         .ulNoReturn = 0,
                         .ulRetCode = code,
                         .ulValue1 = kind.value1,
                         .ulValue2 = 0,
                         .ulValue3 = 0,
                         .ulValue4 = 0,
                         .ulBufLen = size},
                        payload,
                        size};
    const Destination to = destinationOf(*peer);
    const int fd = peer->iSocketFd;
    const ssize_t sent = kind.buffer == nullptr ? sendGathered(fd, answer, to) : sendFrom(kind.buffer, fd, answer, to);
    if (sent < 0)
        return kind.buffer == nullptr ? vos::failedErrno(me, VOS_ERROR, "%s:sendmsg failed errno:%d(%s).")
                                      : vos::failedErrno(me, VOS_ERROR, "%s:sendto failed errno:%d(%s).");
    if (static_cast<std::size_t>(sent) < answer.total())
        vos::error(me, "%s:sendto need send %d but send only %d.", static_cast<int32_t>(answer.total()),
                   static_cast<int32_t>(sent));
    return vos::ended(me, VOS_OK);
}

}  // namespace

int32_t vosMsgResp(int32_t /*iReserved*/, uint32_t ulRetCode, const void *pMsgBuf, uint32_t ulMsgSize,
                   const VOS_MSG_PEER *pPeer) {
    const Caller me;
    return respond(me, kMainAnswer, ulRetCode, pMsgBuf, ulMsgSize, pPeer);
}

int32_t vosMsgResp2(int32_t /*iReserved*/, uint32_t ulRetCode, const void *pMsgBuf, uint32_t ulMsgSize,
                    const VOS_MSG_PEER *pPeer) {
    const Caller me;
    return respond(me, kSecondAnswer, ulRetCode, pMsgBuf, ulMsgSize, pPeer);
}

/* The caller's buffer may be of any size; only the kernel limits the length of the answer. */
int32_t vosMsgThreadResp(int32_t /*iReserved*/, void *pMsgBuf, uint32_t ulRetCode, uint32_t ulMsgSize,
                         const VOS_MSG_PEER *pPeer) {
    const Caller me;
    auto *const buffer = static_cast<uint8_t *>(pMsgBuf);
    const void *const payload = buffer != nullptr ? buffer + kHeadSize : nullptr;
    return respond(me, {0, false, buffer}, ulRetCode, payload, ulMsgSize, pPeer);
}
