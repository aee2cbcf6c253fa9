/* SPDX-License-Identifier: MIT */
/* Sends an application message to a process and receives the answer. */
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include "../base/log.h"
#include "address.h"
#include "message.h"
#include "requester.h"
#include "vosMsgChannel.h"

namespace {

using vos::Caller;
using vos::kHeadSize;

/* The header and the caller's payload, out and back. */
struct Message {
    VOS_MSG_HEAD head;
    void *payload;
    uint32_t size;
    [[nodiscard]] std::size_t total() const { return std::size_t{size} + kHeadSize; }
};

/* What differs between the channels' requests. */
struct Kind {
    uint32_t value1; /* fixed by the protocol; no receiver looks at it */
    uint8_t *buffer; /* where header and payload are put together; null: they are sent from where they are */
};

constinit const Kind kMainRequest{254, nullptr};
constinit const Kind kThreadRequest{0, nullptr};
constinit const Kind kSecondRequest{0, g_vosMsgBufferSend_thread};

template <class Move>
ssize_t gathered(Message &message, Move move) {
    iovec pieces[] = {{&message.head, kHeadSize}, {message.payload, message.size}};
    msghdr record{};
    record.msg_iov = pieces;
    record.msg_iovlen = std::size(pieces);
    return move(record);
}

/* The payload is moved first: it may lie in the same buffer, also where the header goes. */
ssize_t send(const vos::Requester &from, const Kind &kind, Message &message, uint8_t stage) {
    const vos::Origin origin = from.origin(stage);
    if (kind.buffer == nullptr)
        return gathered(message, [&](msghdr &record) { return vos::sendMessage(origin, from.fd(), &record); });
    memmove(kind.buffer + kHeadSize, message.payload, message.size);
    memcpy(kind.buffer, &message.head, kHeadSize);
    return vos::writeMessage(origin, from.fd(), kind.buffer, message.total());
}

/* From a buffer as many bytes are copied back as were sent, whatever the answer's length. */
ssize_t receive(const vos::Requester &to, const Kind &kind, Message &message) {
    const vos::Origin origin = to.origin(VOS_MSG_TAP_ANSWER);
    if (kind.buffer == nullptr)
        return gathered(message, [&](msghdr &record) { return vos::receiveMessage(origin, to.fd(), &record); });
    const ssize_t count = vos::readMessage(origin, to.fd(), kind.buffer, message.total());
    if (count < 0) return count;
    memcpy(&message.head, kind.buffer, kHeadSize);
    memmove(message.payload, kind.buffer + kHeadSize, message.size);
    return count;
}

struct Request {
    const char *name;
    void *payload;
    uint32_t size;
    uint32_t noReturn;
    uint32_t *answerCode; /* may be null; the code is then dropped */
    uint32_t timeoutMs;
    uint8_t stage; /* VOS_MSG_TAP_REQUEST: the answer is awaited; otherwise VOS_MSG_TAP_ONE_WAY */
};

uint8_t stageOf(bool awaitsAnswer) { return awaitsAnswer ? VOS_MSG_TAP_REQUEST : VOS_MSG_TAP_ONE_WAY; }

/* VOS_OK, or the result of a request that cannot be made, after logging why. */
int32_t checkRequest(Caller me, const Request &request) {
    if (request.name == nullptr || request.payload == nullptr)
        return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    if (request.size > vos::kMaxPayload) return vos::failed(me, VOS_ERR_TOO_LONG, "%s:ulMsgSize too long.");
    return VOS_OK;
}

int32_t awaitAnswer(Caller me, const vos::Requester &requester, const Kind &kind, Message &message,
                    uint32_t *answerCode) {
    const ssize_t count = receive(requester, kind, message);
    if (count < 0) return vos::failedErrno(me, VOS_ERROR, "%s:read failed errno:%d(%s).");
    const auto received = static_cast<std::size_t>(count);
    if (received < message.total())
        vos::error(me, "%s:read need read %d but read only %d.", static_cast<int32_t>(message.total()),
                   static_cast<int32_t>(received));
    if (answerCode != nullptr) *answerCode = message.head.ulRetCode;
    return VOS_OK;
}

template <class MakePath>
int32_t sendRequest(Caller me, const Kind &kind, const Request &request, MakePath receiverPath) {
    vos::trace(me, "%s:start.");
    int32_t result = checkRequest(me, request);
    if (result != VOS_OK) return result;
    vos::Requester requester;
    if (!requester.open(me, request.timeoutMs)) return VOS_ERROR;
    const vos::Path path = receiverPath();
    if (!requester.connect(path.view()))
        return vos::failedErrno(me, VOS_ERROR, "%s:connect %s failed errno:%d(%s).", vos::outside(path.get()));
    Message message{{.ulType = VOS_MSG_TYPE_SELF,
                     .ulNoReturn = request.noReturn,
                     .ulRetCode = 0,
                     .ulValue1 = kind.value1,
                     .ulValue2 = 0,
                     .ulValue3 = 0,
                     .ulValue4 = 0,
                     .ulBufLen = request.size},
                    request.payload,
                    request.size};
    const ssize_t sent = send(requester, kind, message, request.stage);
    if (sent < 0)
        return kind.buffer == nullptr ? vos::failedErrno(me, VOS_ERROR, "%s:sendmsg failed errno:%d(%s).")
                                      : vos::failedErrno(me, VOS_ERROR, "%s:write failed errno:%d(%s).");
    if (static_cast<std::size_t>(sent) < message.total())
        vos::error(me, "%s:write need send %d but send only %d.", static_cast<int32_t>(message.total()),
                   static_cast<int32_t>(sent));
    if (request.stage == VOS_MSG_TAP_REQUEST) result = awaitAnswer(me, requester, kind, message, request.answerCode);
    requester.close();
    return vos::ended(me, result);
}

vos::Path processPath(const char *name, uint32_t flags) {
    return (flags & VOS_MSG_TO_HIGH) != 0 ? vos::highPath(name) : vos::normalPath(name);
}

}  // namespace

int32_t vosMsgSend(const char *pDestName, void *pMsgBuf, uint32_t ulMsgSize, uint32_t ulNoReturn, uint32_t *pRetCode,
                   uint32_t ulTimeoutMs, uint32_t ulFlags) {
    const Caller me;
    const bool awaits = ulNoReturn == VOS_MSG_WAIT_ANSWER && (ulFlags & VOS_MSG_NO_WAIT) == 0;
    return sendRequest(me, kMainRequest,
                       {pDestName, pMsgBuf, ulMsgSize, ulNoReturn, pRetCode, ulTimeoutMs, stageOf(awaits)},
                       [=] { return processPath(pDestName, ulFlags); });
}

/* The second channel has no flag VOS_MSG_NO_WAIT: the bit is ignored. */
int32_t vosMsgSend2(const char *pDestName, void *pMsgBuf, uint32_t ulMsgSize, uint32_t ulNoReturn, uint32_t *pRetCode,
                    uint32_t ulTimeoutMs, uint32_t ulFlags) {
    const Caller me;
    const bool awaits = ulNoReturn == VOS_MSG_WAIT_ANSWER;
    return sendRequest(me, kSecondRequest,
                       {pDestName, pMsgBuf, ulMsgSize, ulNoReturn, pRetCode, ulTimeoutMs, stageOf(awaits)},
                       [=] { return processPath(pDestName, ulFlags); });
}

int32_t vosMsgThreadSend(const char *pDestName, int32_t iNumber, void *pMsgBuf, uint32_t ulMsgSize, uint32_t ulNoReturn,
                         uint32_t *pRetCode, uint32_t ulTimeoutMs, uint32_t /*ulReserved*/) {
    const Caller me;
    const bool awaits = ulNoReturn == VOS_MSG_WAIT_ANSWER;
    return sendRequest(me, kThreadRequest,
                       {pDestName, pMsgBuf, ulMsgSize, ulNoReturn, pRetCode, ulTimeoutMs, stageOf(awaits)},
                       [=] { return vos::threadPath(pDestName, iNumber); });
}
