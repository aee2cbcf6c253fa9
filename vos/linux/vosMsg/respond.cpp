/* SPDX-License-Identifier: MIT */
/* The answer to an application message, sent to where it came from. */
#include <sys/socket.h>
#include <sys/uio.h>

#include "../base/log.h"
#include "address.h"
#include "message.h"

namespace {

using vos::Caller;
using vos::kHeadSize;

constexpr uint32_t kNoAnswerWanted = 1; /* this value alone; any other lets the answer go */

struct Answer {
    VOS_MSG_HEAD head;
    const void *payload;
    uint32_t size;
    [[nodiscard]] std::size_t total() const { return std::size_t{size} + kHeadSize; }
};

/* How an answer leaves. */
struct Sender {
    uint32_t value1; /* marks an answer */
    bool limited;    /* to what a message buffer holds */
    ssize_t (*send)(int fd, const Answer &answer, const vos::LocalAddress &to);
    vos::LogText<int, const char *> sendFailed;
};

ssize_t sendGathered(int fd, const Answer &answer, const vos::LocalAddress &to) {
    /* The system call's record has no const, and sending writes through none of these. */
    iovec pieces[] = {{const_cast<VOS_MSG_HEAD *>(&answer.head), kHeadSize},
                      {const_cast<void *>(answer.payload), answer.size}};
    msghdr message{};
    message.msg_name = const_cast<sockaddr *>(to.get());
    message.msg_namelen = to.length();
    message.msg_iov = pieces;
    message.msg_iovlen = std::size(pieces);
    return sendmsg(fd, &message, 0);
}

constexpr Sender kGathered{255, true, sendGathered, "%s:sendmsg failed errno:%d(%s)."};

int32_t respond(Caller me, const Sender &sender, uint32_t code, const void *payload, uint32_t size,
                const VOS_MSG_PEER *peer) {
    vos::trace(me, "%s:start.");
    if (payload == nullptr || peer == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    if (sender.limited && size > vos::kMaxPayload) return vos::failed(me, VOS_ERR_TOO_LONG, "%s:ulMsgSize too long.");
    if (peer->ulNoReturn == kNoAnswerWanted) {
        vos::trace(me, "%s:don't need return.");
        return VOS_OK;
    }
    const Answer answer{{.ulType = VOS_MSG_TYPE_SELF,
                         .ulNoReturn = 0,
                         .ulRetCode = code,
                         .ulValue1 = sender.value1,
                         .ulValue2 = 0,
                         .ulValue3 = 0,
                         .ulValue4 = 0,
                         .ulBufLen = size},
                        payload,
                        size};
    const vos::LocalAddress to{peer->stAddr, peer->ulAddrLen};
    const ssize_t sent = sender.send(peer->iSocketFd, answer, to);
    if (sent < 0) return vos::failedErrno(me, VOS_ERROR, sender.sendFailed);
    if (static_cast<std::size_t>(sent) < answer.total())
        vos::error(me, "%s:sendto need send %d but send only %d.", static_cast<int32_t>(answer.total()),
                   static_cast<int32_t>(sent));
    return vos::ended(me, VOS_OK);
}

}  // namespace

int32_t vosMsgResp(int32_t /*iReserved*/, uint32_t ulRetCode, const void *pMsgBuf, uint32_t ulMsgSize,
                   const VOS_MSG_PEER *pPeer) {
    const Caller me;
    return respond(me, kGathered, ulRetCode, pMsgBuf, ulMsgSize, pPeer);
}
