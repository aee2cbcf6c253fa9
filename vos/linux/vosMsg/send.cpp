/* SPDX-License-Identifier: MIT */
/* One application message to a process, and its answer. */
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

constexpr uint32_t kFlagHigh = 1;
constexpr uint32_t kFlagNoWait = 2;

/* The header and the caller's payload on their way out and back. */
struct Letter {
    VOS_MSG_HEAD head;
    void *payload;
    uint32_t size;
    [[nodiscard]] std::size_t total() const { return std::size_t{size} + kHeadSize; }
};

/* How a kind of request travels. */
struct Way {
    uint32_t value1; /* marks a request of the main channel; peers tell by it who asks */
    uint8_t *room;   /* null: header and payload are gathered where they lie; else both are put together here */
};

constinit const Way kMainWay{254, nullptr};
constinit const Way kThreadWay{0, nullptr};
constinit const Way kSecondWay{0, g_vosMsgBufferSend_thread};

template <class Transfer>
ssize_t gathered(int fd, Letter &letter, Transfer transfer) {
    iovec pieces[] = {{&letter.head, kHeadSize}, {letter.payload, letter.size}};
    msghdr message{};
    message.msg_iov = pieces;
    message.msg_iovlen = std::size(pieces);
    return transfer(fd, &message, 0);
}

ssize_t send(int fd, const Way &way, Letter &letter) {
    if (way.room == nullptr) return gathered(fd, letter, sendmsg);
    memcpy(way.room, &letter.head, kHeadSize);
    memcpy(way.room + kHeadSize, letter.payload, letter.size);
    return write(fd, way.room, letter.total());
}

/* From the room as much comes back as was sent, whatever length the answer has. */
ssize_t receive(int fd, const Way &way, Letter &letter) {
    if (way.room == nullptr) return gathered(fd, letter, recvmsg);
    const ssize_t count = read(fd, way.room, letter.total());
    if (count < 0) return count;
    memcpy(&letter.head, way.room, kHeadSize);
    memcpy(letter.payload, way.room + kHeadSize, letter.size);
    return count;
}

struct Request {
    const char *name;
    void *payload;
    uint32_t size;
    uint32_t noReturn;
    uint32_t *answerCode;
    uint32_t timeoutMs;
    bool awaits;
};

/* True when the request can be made; otherwise the result is set, after its line. */
bool acceptable(Caller me, const Request &request, int32_t &result) {
    if (request.name == nullptr || request.payload == nullptr || (request.awaits && request.answerCode == nullptr))
        result = vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    else if (request.size > vos::kMaxPayload)
        result = vos::failed(me, VOS_ERR_TOO_LONG, "%s:ulMsgSize too long.");
    else
        return true;
    return false;
}

int32_t awaitAnswer(Caller me, int fd, const Way &way, Letter &letter, uint32_t *answerCode) {
    const ssize_t count = receive(fd, way, letter);
    if (count < 0) return vos::failedErrno(me, VOS_ERROR, "%s:read failed errno:%d(%s).");
    const auto received = static_cast<std::size_t>(count);
    if (received < letter.total())
        vos::error(me, "%s:read need read %d but read only %d.", static_cast<int32_t>(letter.total()),
                   static_cast<int32_t>(received));
    *answerCode = letter.head.ulRetCode;
    return VOS_OK;
}

template <class MakePath>
int32_t request(Caller me, const Way &way, const Request &request, MakePath receiverPath) {
    vos::trace(me, "%s:start.");
    int32_t result = VOS_OK;
    if (!acceptable(me, request, result)) return result;
    vos::Requester requester;
    if (!requester.open(me, request.timeoutMs)) return VOS_ERROR;
    const vos::Path path = receiverPath();
    if (!requester.connect(path.view()))
        return vos::failedErrno(me, VOS_ERROR, "%s:connect %s failed errno:%d(%s).", vos::outside(path.get()));
    Letter letter{{.ulType = VOS_MSG_TYPE_SELF,
                   .ulNoReturn = request.noReturn,
                   .ulRetCode = 0,
                   .ulValue1 = way.value1,
                   .ulValue2 = 0,
                   .ulValue3 = 0,
                   .ulValue4 = 0,
                   .ulBufLen = request.size},
                  request.payload,
                  request.size};
    const ssize_t sent = send(requester.fd(), way, letter);
    if (sent < 0)
        return way.room == nullptr ? vos::failedErrno(me, VOS_ERROR, "%s:sendmsg failed errno:%d(%s).")
                                   : vos::failedErrno(me, VOS_ERROR, "%s:write failed errno:%d(%s).");
    if (static_cast<std::size_t>(sent) < letter.total())
        vos::error(me, "%s:write need send %d but send only %d.", static_cast<int32_t>(letter.total()),
                   static_cast<int32_t>(sent));
    if (request.awaits) result = awaitAnswer(me, requester.fd(), way, letter, request.answerCode);
    requester.close();
    return vos::ended(me, result);
}

vos::Path processPath(const char *name, uint32_t flags) {
    return (flags & kFlagHigh) != 0 ? vos::highPath(name) : vos::normalPath(name);
}

}  // namespace

int32_t vosMsgSend(const char *pDestName, void *pMsgBuf, uint32_t ulMsgSize, uint32_t ulNoReturn, uint32_t *pRetCode,
                   uint32_t ulTimeoutMs, uint32_t ulFlags) {
    const Caller me;
    const bool awaits = ulNoReturn == 0 && (ulFlags & kFlagNoWait) == 0;
    return request(me, kMainWay, {pDestName, pMsgBuf, ulMsgSize, ulNoReturn, pRetCode, ulTimeoutMs, awaits},
                   [=] { return processPath(pDestName, ulFlags); });
}

/* Without the flag that spares the wait: the second channel's requesters have never known it. */
int32_t vosMsgSend2(const char *pDestName, void *pMsgBuf, uint32_t ulMsgSize, uint32_t ulNoReturn, uint32_t *pRetCode,
                    uint32_t ulTimeoutMs, uint32_t ulFlags) {
    const Caller me;
    return request(me, kSecondWay, {pDestName, pMsgBuf, ulMsgSize, ulNoReturn, pRetCode, ulTimeoutMs, ulNoReturn == 0},
                   [=] { return processPath(pDestName, ulFlags); });
}

int32_t vosMsgThreadSend(const char *pDestName, int32_t iNumber, void *pMsgBuf, uint32_t ulMsgSize, uint32_t ulNoReturn,
                         uint32_t *pRetCode, uint32_t ulTimeoutMs, uint32_t /*ulReserved*/) {
    const Caller me;
    return request(me, kThreadWay, {pDestName, pMsgBuf, ulMsgSize, ulNoReturn, pRetCode, ulTimeoutMs, ulNoReturn == 0},
                   [=] { return vos::threadPath(pDestName, iNumber); });
}
