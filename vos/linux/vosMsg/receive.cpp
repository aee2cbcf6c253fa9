/* SPDX-License-Identifier: MIT */
/* The receive loop, the same for all channels. One wake-up serves one message of the kernel, the high socket until it
 * is empty, one message of the normal socket, then the application's descriptors. Only an application message ends the
 * call with a length. */
#include <sys/time.h>

#include <algorithm>
#include <optional>

#include "../base/log.h"
#include "message.h"
#include "timers.h"
#include "userSockets.h"

namespace {

using std::nullopt;
using std::optional;
using vos::Arrival;
using vos::Caller;
using vos::ReadSet;

/* What one receive loop owns and watches. */
struct Channel {
    const int32_t *normal;
    const int32_t *high;    /* null: the channel has none */
    const int32_t *netlink; /* null: the kernel's messages are not this channel's */
    uint8_t *buffer;        /* every datagram is received into it */
    uint32_t bufferSize;
    uint32_t *lastLength;         /* of the datagram in the buffer; null: the channel has no high socket */
    const vos::TimerList *timers; /* null: no timers fire in this loop */
    bool userSockets;             /* whether the loop watches the application's descriptors */
    bool inPlace;                 /* the buffer is the caller's own, and a message stays in it with its header */
};

/* Where an application message goes. In place only the peer is used. */
struct Delivery {
    void *buffer;
    uint32_t size; /* at most the largest payload */
    VOS_MSG_PEER *peer;
};

struct Wait {
    uint32_t ms;
    bool forTimer; /* it ends early, for a timer: the caller's own time-out starts again afterwards */
};

Wait untilTimerOr(const Channel &channel, uint32_t timeoutMs) {
    const uint32_t timer = channel.timers != nullptr ? vos::runTimers(*channel.timers) : vos::kForever;
    return timer < timeoutMs ? Wait{timer, true} : Wait{timeoutMs, false};
}

int waitFor(ReadSet &set, uint32_t ms) {
    if (ms == vos::kForever) return set.wait(nullptr);
    timeval limit{static_cast<time_t>(ms / 1000), static_cast<suseconds_t>(ms % 1000 * 1000)};
    return set.wait(&limit);
}

bool watchSocket(Caller me, int32_t socket, ReadSet &set) {
    if (set.add(socket)) return true;
    vos::error(me, "%s:socket %d is out of select range.", socket);
    return false;
}

bool watchSockets(Caller me, const Channel &channel, ReadSet &set) {
    return watchSocket(me, *channel.normal, set) && (channel.high == nullptr || watchSocket(me, *channel.high, set)) &&
           (channel.netlink == nullptr || *channel.netlink == -1 || watchSocket(me, *channel.netlink, set));
}

/* A sender's address as the kernel reports it. */
struct Sender {
    sockaddr_un address{};
    uint32_t length = sizeof(sockaddr_un);
    [[nodiscard]] sockaddr *get() { return reinterpret_cast<sockaddr *>(&address); }
};

int32_t receiveInto(const Channel &channel, int32_t socket, Sender &sender) {
    const int32_t received =
        vos::receiveStream(vos::kReceiveLoop, socket, channel.buffer, channel.bufferSize, sender.get(), &sender.length);
    if (received >= 0 && channel.lastLength != nullptr) *channel.lastLength = static_cast<uint32_t>(received);
    return received;
}

Arrival arrivalOf(const Channel &channel, int32_t socket, uint32_t received, Sender &sender) {
    return {socket, {channel.buffer, received}, channel.bufferSize, sender.get(), sender.length};
}

int32_t deliver(const Channel &channel, const Delivery &to, const Arrival &arrival, uint32_t count) {
    /* The header is read before the payload moves, because the caller's buffer may be the receive buffer itself. */
    const uint32_t noReturn = arrival.head().ulNoReturn;
    /* The copy ends inside the receive buffer: the count is at most the caller's size, which is at most the largest
     * payload. A count of 0 may come with a null pointer. */
    if (!channel.inPlace && count > 0) memmove(to.buffer, channel.buffer + vos::kHeadSize, count);
    memcpy(&to.peer->stAddr, arrival.sender, sizeof to.peer->stAddr);
    to.peer->ulAddrLen = arrival.senderLength;
    to.peer->ulNoReturn = noReturn;
    to.peer->iSocketFd = arrival.socket;
    return static_cast<int32_t>(count);
}

bool readableNow(Caller me, int32_t socket) {
    ReadSet one;
    one.add(socket);
    const int count = waitFor(one, 0);
    if (count < 0) vos::errorErrno(me, "%s:select failed errno:%d(%s).");
    return count > 0;
}

/* Serves the high socket until it is empty. A result ends the loop. */
optional<int32_t> serveHigh(Caller me, const Channel &channel, const ReadSet &ready, const Delivery &delivery) {
    if (channel.high == nullptr || !ready.has(*channel.high)) return nullopt;
    const int32_t socket = *channel.high;
    do {
        Sender sender;
        const auto received = static_cast<uint32_t>(receiveInto(channel, socket, sender));
        if (received < vos::kHeadSize)
            return vos::failed(me, VOS_ERROR, "%s:vosMsgRecvStream high failed, size %d.", received);
        /* A failed receive, an empty datagram included, is -1 and so the largest length here. It is required that the
         * loop then examines the last message in the buffer once more. It uses that message's own length, because the
         * bytes after it are parts of earlier messages, which are not for this sender. */
        const uint32_t length = std::max(*channel.lastLength, vos::kHeadSize);
        const Arrival arrival = arrivalOf(channel, socket, length, sender);
        if (arrival.head().ulType == VOS_MSG_TYPE_SELF) {
            vos::trace(me, "%s:high receive VOS_MSG_TYPE_SELF.");
            return deliver(channel, delivery, arrival, std::min(received - vos::kHeadSize, delivery.size));
        }
        vos::vosMsgProcessInternel(arrival);
    } while (readableNow(me, socket));
    return nullopt;
}

/* One message of the normal socket. A result ends the loop. */
optional<int32_t> serveNormal(Caller me, const Channel &channel, const ReadSet &ready, const Delivery &delivery) {
    if (!ready.has(*channel.normal)) return nullopt;
    const int32_t socket = *channel.normal;
    Sender sender;
    const int32_t result = receiveInto(channel, socket, sender);
    if (result < 0) return vos::failed(me, VOS_ERROR, "%s:vosMsgRecvStream failed.");
    const auto received = static_cast<uint32_t>(result);
    if (received < vos::kHeadSize) {
        vos::error(me, "%s:message of %u bytes is too short.", received);
        return nullopt;
    }
    const Arrival arrival = arrivalOf(channel, socket, received, sender);
    if (arrival.head().ulType != VOS_MSG_TYPE_SELF) {
        vos::vosMsgProcessInternel(arrival);
        return nullopt;
    }
    if (channel.inPlace) return deliver(channel, delivery, arrival, received);
    vos::trace(me, "%s:receive VOS_MSG_TYPE_SELF.");
    /* It is required that this length counts the header and that of the high socket does not. */
    return deliver(channel, delivery, arrival, std::min(received, delivery.size));
}

/* The receive loop: returns with an application message's length, or a result code. */
int32_t receiveMessage(Caller me, const Channel &channel, const Delivery &delivery, uint32_t timeoutMs) {
    for (;;) {
        const Wait wait = untilTimerOr(channel, timeoutMs);
        ReadSet ready;
        if (!watchSockets(me, channel, ready)) return VOS_ERROR;
        const vos::Moment made = channel.userSockets ? vos::watchUserSockets(me, ready) : 0;
        const int count = waitFor(ready, wait.ms);
        if (count < 0) return vos::failedErrno(me, VOS_ERROR, "%s:select failed errno:%d(%s).");
        if (count == 0) {
            if (channel.inPlace) return VOS_ERR_TIMEOUT; /* it waits for ever, so this needs no line */
            vos::trace(me, "%s:select timeout.");
            if (wait.forTimer) continue;
            return VOS_ERR_TIMEOUT;
        }
        if (channel.netlink != nullptr && ready.has(*channel.netlink))
            vos::vosMsgNetlinkUniProcess(*channel.netlink, channel.buffer, *channel.lastLength);
        if (const auto result = serveHigh(me, channel, ready, delivery)) return *result;
        if (const auto result = serveNormal(me, channel, ready, delivery)) return *result;
        if (channel.userSockets) vos::callUserSockets(ready, made);
    }
}

int32_t receiveChecked(Caller me, const Channel &channel, const Delivery &delivery, uint32_t timeoutMs) {
    vos::trace(me, "%s:start.");
    if (delivery.peer == nullptr || (delivery.buffer == nullptr && delivery.size > 0))
        return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    if (*channel.normal == -1) return vos::failed(me, VOS_ERR_NOT_INIT, "%s:msg is not initial.");
    if (*channel.high == -1) return vos::failed(me, VOS_ERR_NOT_INIT, "%s:high msg is not initial.");
    if (delivery.size > vos::kMaxPayload) {
        vosPrintf("\r\n%s:ulMsgSize too long.", me.name);
        return VOS_ERR_PARAM;
    }
    return receiveMessage(me, channel, delivery, timeoutMs);
}

constinit uint32_t g_lastLength = 0;
constinit uint32_t g_lastLength_thread = 0;

constinit const Channel kMainChannel{
    .normal = &g_vosFdProc,
    .high = &g_vosFdProcHigh,
    .netlink = &g_vosFdNLUni,
    .buffer = g_vosMsgBufferRecv,
    .bufferSize = VOS_MSG_BUFFER_LEN,
    .lastLength = &g_lastLength,
    .timers = &vos::kMainTimers,
    .userSockets = true,
    .inPlace = false,
};

constinit const Channel kSecondChannel{
    .normal = &g_vosFdProc_thread,
    .high = &g_vosFdProcHigh_thread,
    .netlink = nullptr,
    .buffer = g_vosMsgBufferRecv_thread,
    .bufferSize = VOS_MSG_BUFFER_LEN,
    .lastLength = &g_lastLength_thread,
    .timers = &vos::kSecondTimers,
    .userSockets = true,
    .inPlace = false,
};

/* A thread channel consists of its caller's descriptor and buffer. */
Channel threadChannel(const int32_t &socket, void *buffer, uint32_t size) {
    return {
        .normal = &socket,
        .high = nullptr,
        .netlink = nullptr,
        .buffer = static_cast<uint8_t *>(buffer),
        .bufferSize = size,
        .lastLength = nullptr,
        .timers = nullptr,
        .userSockets = false,
        .inPlace = true,
    };
}

}  // namespace

int32_t vosMsgRecv(uint32_t /*ulReserved*/, void *pMsgBuf, uint32_t ulMsgSize, uint32_t ulTimeoutMs,
                   VOS_MSG_PEER *pPeer) {
    const Caller me;
    return receiveChecked(me, kMainChannel, {pMsgBuf, ulMsgSize, pPeer}, ulTimeoutMs);
}

int32_t vosMsgRecv2(uint32_t /*ulReserved*/, void *pMsgBuf, uint32_t ulMsgSize, uint32_t ulTimeoutMs,
                    VOS_MSG_PEER *pPeer) {
    const Caller me;
    return receiveChecked(me, kSecondChannel, {pMsgBuf, ulMsgSize, pPeer}, ulTimeoutMs);
}

int32_t vosMsgThreadRecv(int32_t iSocketFd, void *pMsgBuf, uint32_t ulMsgSize, uint32_t /*ulReserved*/,
                         VOS_MSG_PEER *pPeer) {
    const Caller me;
    vos::trace(me, "%s:start.");
    if (pPeer == nullptr || pMsgBuf == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    if (ulMsgSize <= vos::kHeadSize) {
        vosPrintf("\r\n%s:ulMsgSize too small.", me.name);
        return VOS_ERR_PARAM;
    }
    const Channel channel = threadChannel(iSocketFd, pMsgBuf, ulMsgSize);
    return receiveMessage(me, channel, {pMsgBuf, ulMsgSize, pPeer}, vos::kForever);
}
