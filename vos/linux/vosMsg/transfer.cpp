/* SPDX-License-Identifier: MIT */
/* The transfers of a process that is tapped. What the application has handed to a call is read only when the kernel has
 * read or written it: a failing call may have been given anything. */
#include "transfer.h"

#include <linux/netlink.h>
#include <pthread.h>
#include <sys/un.h>

#include <algorithm>
#include <array>

#include "../base/errnoKeeper.h"
#include "message.h"
#include "ownSockets.h"
#include "requester.h"
#include "tap.h"

namespace {

using vos::Origin;
using Pieces = std::span<const iovec>;

/* A thread that is cancelled inside a copy would stay a user of the tap for ever. */
class NotCancelled {
  public:
    NotCancelled() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    NotCancelled(const NotCancelled &) = delete;
    NotCancelled &operator=(const NotCancelled &) = delete;
    ~NotCancelled() { pthread_setcancelstate(before_, nullptr); }

  private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

struct Address {
    const sockaddr *at = nullptr;
    socklen_t length = 0;
};

template <std::size_t Size>
uint16_t fill(char (&to)[Size], std::string_view path) {
    const std::size_t length = std::min(path.size(), Size - 1);
    std::copy_n(path.data(), length, to);
    return static_cast<uint16_t>(length);
}

/* The name of an abstract address may contain any bytes; a path ends at its NUL. */
std::string_view pathOf(const Address &address) {
    constexpr std::size_t kFamily = offsetof(sockaddr_un, sun_path);
    if (address.length <= kFamily) return {};
    const char *const path = reinterpret_cast<const char *>(address.at) + kFamily;
    const std::size_t most = std::min<std::size_t>(address.length, sizeof(sockaddr_un)) - kFamily;
    return {path, path[0] == '\0' ? most : strnlen(path, most)};
}

void describePeer(const Address &address, VOS_MSG_TAP_HEAD &head) {
    sa_family_t family = AF_UNSPEC;
    if (address.at == nullptr || address.length < sizeof family) return;
    memcpy(&family, address.at, sizeof family);
    if (family == AF_UNIX) head.usPeerLen = fill(head.acPeer, pathOf(address));
    if (family != AF_NETLINK) return;
    sockaddr_nl sender{};
    memcpy(&sender, address.at, std::min<std::size_t>(address.length, sizeof sender));
    head.ulPeerPort = sender.nl_pid;
    head.ulHeadAt = sizeof(nlmsghdr);
}

void describeOwn(const Origin &origin, int fd, VOS_MSG_TAP_HEAD &head) {
    head.iSocketFd = fd;
    if (origin.requester != nullptr) {
        head.ucSocket = VOS_MSG_TAP_REQUESTER;
        head.usOwnLen = fill(head.acOwn, origin.requester->path());
        head.usPeerLen = fill(head.acPeer, origin.requester->receiver());
        return;
    }
    const vos::OwnSocket own = vos::ownSocket(fd);
    head.ucSocket = own.kind != 0 ? own.kind : origin.unlisted;
    head.usOwnLen = fill(head.acOwn, own.path);
    if (own.kind == VOS_MSG_TAP_NETLINK) head.ulHeadAt = sizeof(nlmsghdr);
}

std::size_t total(Pieces pieces) {
    std::size_t sum = 0;
    for (const iovec &piece : pieces) sum += piece.iov_len;
    return sum;
}

/* The first two words of the message's header. False when it is too short for them. */
bool firstWords(Pieces pieces, std::size_t from, std::size_t length, std::array<uint32_t, 2> &words) {
    std::size_t skip = from;
    std::size_t have = 0;
    auto *const to = reinterpret_cast<uint8_t *>(words.data());
    if (length < from + sizeof words) return false;
    for (const iovec &piece : pieces) {
        const std::size_t skipped = std::min(skip, piece.iov_len);
        const std::size_t part = std::min(piece.iov_len - skipped, sizeof words - have);
        std::copy_n(static_cast<const uint8_t *>(piece.iov_base) + skipped, part, to + have);
        skip -= skipped;
        have += part;
    }
    return true;
}

/* Of a message that a receive loop got: whether its sender may wait for an answer. */
uint8_t arrivedStage(uint32_t type, uint32_t noReturn) {
    switch (type) {
        case VOS_MSG_TYPE_SELF:
            return noReturn == VOS_MSG_NO_ANSWER ? VOS_MSG_TAP_ONE_WAY : VOS_MSG_TAP_REQUEST;
        case VOS_MSG_TYPE_CCD:
            return noReturn != 0 ? VOS_MSG_TAP_ONE_WAY : VOS_MSG_TAP_REQUEST;
        case VOS_MSG_TYPE_BLDRUN:
        case VOS_MSG_TYPE_CCD_OBJ_INFO_GET:
            return VOS_MSG_TAP_REQUEST;
        default:
            return VOS_MSG_TAP_ONE_WAY;
    }
}

/* A transfer that has been made. */
struct Transfer {
    const Origin &origin;
    uint8_t what;
    int fd;
    ssize_t result;
};

/* Whether the memory that the call was given can be read: the application's own call may fail because it cannot. */
bool readable(const Transfer &transfer) {
    return transfer.result >= 0 || (transfer.what == VOS_MSG_TAP_SENT && transfer.origin.stage != VOS_MSG_TAP_PLAIN);
}

/* The length of the message in the pieces: what was received, or all that was to be sent. */
std::size_t messageLength(const Transfer &transfer, Pieces pieces) {
    const std::size_t whole = total(pieces);
    if (transfer.what == VOS_MSG_TAP_SENT) return whole;
    return std::min(whole, static_cast<std::size_t>(transfer.result));
}

/* Completes the header. False for a message that is never copied. */
bool describeMessage(const Transfer &transfer, Pieces pieces, std::size_t length, VOS_MSG_TAP_HEAD &head) {
    head.ucStage = transfer.origin.stage;
    head.ulWholeLen = static_cast<uint32_t>(length);
    std::array<uint32_t, 2> words{};
    const bool known = firstWords(pieces, head.ulHeadAt, length, words);
    if (known && (words[0] == VOS_MSG_TAP || words[0] == VOS_MSG_TAP_COPY)) return false;
    if (head.ucStage != vos::kArrivedStage) return true;
    head.ucStage = known ? arrivedStage(words[0], words[1]) : uint8_t{VOS_MSG_TAP_PLAIN};
    return true;
}

void copyToTaps(const vos::TapMoment &moment, const Transfer &transfer, Pieces pieces, const Address &peer) {
    const int error = errno;
    const vos::ErrnoKeeper keep;
    const NotCancelled working;
    if (!vos::ownsTaps()) return;
    VOS_MSG_TAP_HEAD head = vos::newTapHead(transfer.what, moment);
    describeOwn(transfer.origin, transfer.fd, head);
    head.iResult = static_cast<int32_t>(transfer.result);
    head.iErrno = transfer.result < 0 ? error : 0;
    std::size_t length = 0;
    if (readable(transfer)) {
        describePeer(peer, head);
        length = messageLength(transfer, pieces);
    }
    if (!describeMessage(transfer, length > 0 ? pieces : Pieces{}, length, head)) return;
    for (vos::Tap &tap : vos::g_taps) {
        if (!tap.enter()) continue;
        tap.copy(head, pieces, length);
        tap.leave();
    }
}

iovec piece(const void *buffer, std::size_t size) {
    return {const_cast<void *>(buffer), size}; /* the record has no const; only sending reads it */
}

/* A sender's address. The kernel writes no more of it than there was room for, and reports its whole length. */
Address sender(const void *at, socklen_t room, socklen_t reported) {
    return {static_cast<const sockaddr *>(at), std::min(room, reported)};
}

}  // namespace

ssize_t vos::sendToTapped(Origin origin, int fd, const void *buffer, std::size_t size, const sockaddr *to,
                          socklen_t length) {
    const TapMoment before = TapMoment::now();
    const ssize_t result = sendto(fd, buffer, size, 0, to, length);
    const iovec whole = piece(buffer, size);
    copyToTaps(before, {origin, VOS_MSG_TAP_SENT, fd, result}, {&whole, 1}, {to, length});
    return result;
}

ssize_t vos::sendMessageTapped(Origin origin, int fd, const msghdr *message) {
    const TapMoment before = TapMoment::now();
    const ssize_t result = sendmsg(fd, message, 0);
    const Transfer transfer{origin, VOS_MSG_TAP_SENT, fd, result};
    if (!readable(transfer))
        copyToTaps(before, transfer, {}, {});
    else
        copyToTaps(before, transfer, {message->msg_iov, message->msg_iovlen},
                   {static_cast<const sockaddr *>(message->msg_name), message->msg_namelen});
    return result;
}

ssize_t vos::receiveFromTapped(Origin origin, int fd, void *buffer, std::size_t size, sockaddr *from,
                               socklen_t *length) {
    const socklen_t room = from != nullptr && length != nullptr ? *length : 0;
    const ssize_t result = recvfrom(fd, buffer, size, 0, from, length);
    const iovec whole = piece(buffer, size);
    copyToTaps(TapMoment::now(), {origin, VOS_MSG_TAP_RECEIVED, fd, result}, {&whole, 1},
               sender(from, room, room > 0 ? *length : 0));
    return result;
}

ssize_t vos::receiveMessageTapped(Origin origin, int fd, msghdr *message) {
    const socklen_t room = message != nullptr && message->msg_name != nullptr ? message->msg_namelen : 0;
    const ssize_t result = recvmsg(fd, message, 0);
    const Transfer transfer{origin, VOS_MSG_TAP_RECEIVED, fd, result};
    if (result < 0 || message == nullptr)
        copyToTaps(TapMoment::now(), transfer, {}, {});
    else
        copyToTaps(TapMoment::now(), transfer, {message->msg_iov, message->msg_iovlen},
                   sender(message->msg_name, room, message->msg_namelen));
    return result;
}

ssize_t vos::writeTapped(Origin origin, int fd, const void *buffer, std::size_t size) {
    const TapMoment before = TapMoment::now();
    const ssize_t result = write(fd, buffer, size);
    const iovec whole = piece(buffer, size);
    copyToTaps(before, {origin, VOS_MSG_TAP_SENT, fd, result}, {&whole, 1}, {});
    return result;
}

ssize_t vos::readTapped(Origin origin, int fd, void *buffer, std::size_t size) {
    const ssize_t result = read(fd, buffer, size);
    const iovec whole = piece(buffer, size);
    copyToTaps(TapMoment::now(), {origin, VOS_MSG_TAP_RECEIVED, fd, result}, {&whole, 1}, {});
    return result;
}

void vos::copyUnreachable(const Requester &requester) {
    const Origin origin{VOS_MSG_TAP_REQUEST, VOS_MSG_TAP_REQUESTER, &requester};
    copyToTaps(TapMoment::now(), {origin, VOS_MSG_TAP_SENT, requester.fd(), -1}, {}, {});
}
