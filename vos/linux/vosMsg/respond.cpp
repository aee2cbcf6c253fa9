/* SPDX-License-Identifier: MIT */
/* The answer to an application message, sent to where it came from. */
#include <sys/socket.h>
#include <sys/uio.h>

#include "../base/log.h"
#include "address.h"
#include "message.h"
#include "vosMsgChannel.h"

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

/* How a kind of answer travels. */
struct Way {
    uint32_t value1; /* marks an answer of the main channel */
    bool limited;    /* to what a message buffer holds */
    uint8_t *room;   /* null: header and payload are gathered where they lie; else the answer stands here */
};

constinit const Way kMainWay{255, true, nullptr};
constinit const Way kSecondWay{0, true, g_vosMsgBufferResp_thread};

/* Where an answer goes: to the peer's address as it stands in its record. The kernel may read up to 128 bytes of an
 * address that it then refuses, so that one with a nonsensical length gets more room. */
class Destination {
  public:
    explicit Destination(const VOS_MSG_PEER &peer) : length_(peer.ulAddrLen) {
        if (length_ <= sizeof peer.stAddr) [[likely]] {
            address_ = reinterpret_cast<const sockaddr *>(&peer.stAddr);
            return;
        }
        room_ = {};
        memcpy(&room_, &peer.stAddr, sizeof peer.stAddr);
        address_ = reinterpret_cast<const sockaddr *>(&room_);
    }
    Destination(const Destination &) = delete;
    Destination &operator=(const Destination &) = delete;
    [[nodiscard]] const sockaddr *get() const { return address_; }
    [[nodiscard]] socklen_t length() const { return length_; }

  private:
    const sockaddr *address_;
    socklen_t length_;
    sockaddr_storage room_;
};

ssize_t sendGathered(int fd, const Answer &answer, const Destination &to) {
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

/* Puts the answer together, unless the payload already lies behind the room's header. */
ssize_t sendFrom(uint8_t *room, int fd, const Answer &answer, const Destination &to) {
    memcpy(room, &answer.head, kHeadSize);
    if (answer.payload != room + kHeadSize) memcpy(room + kHeadSize, answer.payload, answer.size);
    return sendto(fd, room, answer.total(), 0, to.get(), to.length());
}

int32_t respond(Caller me, const Way &way, uint32_t code, const void *payload, uint32_t size,
                const VOS_MSG_PEER *peer) {
    vos::trace(me, "%s:start.");
    if (payload == nullptr || peer == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    if (way.limited && size > vos::kMaxPayload) return vos::failed(me, VOS_ERR_TOO_LONG, "%s:ulMsgSize too long.");
    if (peer->ulNoReturn == kNoAnswerWanted) {
        vos::trace(me, "%s:don't need return.");
        return VOS_OK;
    }
    const Answer answer{{.ulType = VOS_MSG_TYPE_SELF,
                         .ulNoReturn = 0,
                         .ulRetCode = code,
                         .ulValue1 = way.value1,
                         .ulValue2 = 0,
                         .ulValue3 = 0,
                         .ulValue4 = 0,
                         .ulBufLen = size},
                        payload,
                        size};
    const Destination to{*peer};
    const int fd = peer->iSocketFd;
    const ssize_t sent = way.room == nullptr ? sendGathered(fd, answer, to) : sendFrom(way.room, fd, answer, to);
    if (sent < 0)
        return way.room == nullptr ? vos::failedErrno(me, VOS_ERROR, "%s:sendmsg failed errno:%d(%s).")
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
    return respond(me, kMainWay, ulRetCode, pMsgBuf, ulMsgSize, pPeer);
}

int32_t vosMsgResp2(int32_t /*iReserved*/, uint32_t ulRetCode, const void *pMsgBuf, uint32_t ulMsgSize,
                    const VOS_MSG_PEER *pPeer) {
    const Caller me;
    return respond(me, kSecondWay, ulRetCode, pMsgBuf, ulMsgSize, pPeer);
}

/* The caller's buffer may be of any size, and the socket alone limits the answer. */
int32_t vosMsgThreadResp(int32_t /*iReserved*/, void *pMsgBuf, uint32_t ulRetCode, uint32_t ulMsgSize,
                         const VOS_MSG_PEER *pPeer) {
    const Caller me;
    auto *const room = static_cast<uint8_t *>(pMsgBuf);
    const void *const payload = room != nullptr ? room + kHeadSize : nullptr;
    return respond(me, {0, false, room}, ulRetCode, payload, ulMsgSize, pPeer);
}
