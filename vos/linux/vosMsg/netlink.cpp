/* SPDX-License-Identifier: MIT */
/* Messages of the kernel: the netlink header, then VOS_MSG_HEAD. */
#include <linux/netlink.h>

#include "../base/assertion.h"
#include "../base/log.h"
#include "message.h"

namespace {

static_assert(sizeof(nlmsghdr) == 16 && sizeof(sockaddr_nl) == 12);
static_assert(offsetof(nlmsghdr, nlmsg_flags) == 6 && offsetof(nlmsghdr, nlmsg_pid) == 12);

void reject(vos::Caller me, std::span<const uint8_t> datagram, const VOS_MSG_HEAD &head) {
    nlmsghdr outer;
    memcpy(&outer, datagram.data(), sizeof outer);
    const auto length = static_cast<int32_t>(datagram.size());
    vos::error(me, "%s:receive invalid msg type %u msg len %d buf len %d.", head.ulType, length,
               length - static_cast<int32_t>(sizeof outer));
    vos::error(me, "%s:msg header content:len %d flag %d type %d pid %d.", outer.nlmsg_len, int32_t{outer.nlmsg_flags},
               int32_t{outer.nlmsg_type}, outer.nlmsg_pid);
    vos::error(me, "%s:vos header content:type %u buferlen %u value1 %u.", head.ulType, head.ulBufLen, head.ulValue1);
}

}  // namespace

int32_t vos::handleNetlinkDatagram(Caller me, const Arrival &datagram) {
    const auto message = datagram.message.data() + sizeof(nlmsghdr);
    check(aligned(message, ZEB_LONGBYTES), "0 == ((uintptr_t)pMsgRecv)%ZEB_LONGBYTES", kMsgArea, me);
    if (datagram.message.size() < sizeof(nlmsghdr) + kHeadSize)
        return failed(me, VOS_ERROR, "%s:message of %lu bytes is too short.", datagram.message.size());
    Arrival inner = datagram;
    inner.message = datagram.message.subspan(sizeof(nlmsghdr));
    inner.room = datagram.room - sizeof(nlmsghdr);
    const VOS_MSG_HEAD head = inner.head();
    if (head.ulType == VOS_MSG_TYPE_PACKET || head.ulType == VOS_MSG_TYPE_LINK)
        return ended(me, vosMsgProcessInternel(inner));
    reject(me, datagram.message, head);
    return ended(me, VOS_ERROR);
}

int32_t vos::vosMsgNetlinkUniProcess(int32_t iSocketFd, uint8_t *buffer, uint32_t &bufferLength) {
    const Caller me;
    trace(me, "%s:start.");
    sockaddr_nl sender{};
    uint32_t length = sizeof sender;
    auto *const address = reinterpret_cast<sockaddr *>(&sender);
    const int32_t received = receiveStream(kReceiveLoop, iSocketFd, buffer, VOS_MSG_BUFFER_LEN, address, &length);
    if (received < 0) return failed(me, VOS_ERROR, "%s:vosMsgRecvStream failed.");
    bufferLength = static_cast<uint32_t>(received);
    const std::span<uint8_t> message{buffer, static_cast<std::size_t>(received)};
    return handleNetlinkDatagram(me, {iSocketFd, message, VOS_MSG_BUFFER_LEN, address, length});
}
