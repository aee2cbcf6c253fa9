/* SPDX-License-Identifier: MIT */
/* The running configuration as text: the request to another process, and the answer to such a request. */
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>

#include "../base/block.h"
#include "../base/log.h"
#include "address.h"
#include "message.h"
#include "requester.h"

namespace {

using vos::Caller;
using vos::kHeadSize;

constexpr uint32_t kTimeoutMs = 90000; /* the configuration of a large device takes long to print */

/* The text that the handler builds: zeroed, and freed with the scope. Null when there is no memory, or when the text
 * would be longer than one datagram may be. */
using TextBuffer = std::unique_ptr<char[], vos::FreeBlock>;

TextBuffer allocateText(uint32_t size) {
    if (size > vos::kSendBuffer) return nullptr;
    return TextBuffer{static_cast<char *>(calloc(1, size > 0 ? size : 1))};
}

/* Lets the handler build the text. `room` receives the number of bytes that it leaves free. */
int32_t build(Caller me, const VOS_MSG_HEAD &request, char *text, int32_t &room) {
    const auto capacity = static_cast<int32_t>(request.ulBufLen);
    room = capacity;
    const int32_t code = g_vosBldrunProc(text, &room, request.ulValue1, request.ulValue2);
    if (code != 0 || (room >= 0 && room <= capacity)) return code;
    return vos::failed(me, VOS_ERROR, "%s:bldrun handler left %d of %d bytes.", room, capacity);
}

int32_t sendAnswer(Caller me, const vos::Arrival &request, VOS_MSG_HEAD &head, char *text, uint32_t textSize) {
    iovec pieces[] = {{&head, kHeadSize}, {text, textSize}};
    msghdr message{};
    message.msg_name = const_cast<sockaddr *>(request.sender); /* the record has no const; sending writes nothing */
    message.msg_namelen = vos::answerLength(request.senderLength);
    message.msg_iov = pieces;
    message.msg_iovlen = text != nullptr ? 2 : 1;
    if (vos::sendStream1(vos::kAnswer, request.socket, &message, kHeadSize + textSize) < 0)
        return vos::failed(me, VOS_ERROR, "%s:bldrun vosMsgSendStream1 failed.");
    return VOS_OK;
}

int32_t refuse(Caller me, const vos::Arrival &request, VOS_MSG_HEAD &head, int32_t code) {
    head.ulRetCode = static_cast<uint32_t>(code);
    return sendAnswer(me, request, head, nullptr, 0);
}

/* Whether an answer of that many bytes holds the text that its header announces. Of a capacity, `left` bytes are free.
 */
bool whole(uint32_t received, uint32_t left, uint32_t capacity) {
    return left <= capacity && received >= uint64_t{kHeadSize} + (capacity - left);
}

/* Receives the answer into the header and the caller's buffer. The size given to vosMsgRecvStream1() is only traced. */
int32_t receiveAnswer(Caller me, const vos::Requester &requester, VOS_MSG_HEAD &head, char *text, uint32_t *length) {
    iovec pieces[] = {{&head, kHeadSize}, {text, *length}};
    msghdr message{};
    message.msg_iov = pieces;
    message.msg_iovlen = std::size(pieces);
    const uint64_t expected = uint64_t{*length} + kHeadSize;
    head = {};
    const int32_t received =
        vos::receiveStream1(requester.origin(VOS_MSG_TAP_ANSWER), requester.fd(), &message, *length);
    if (received < 0) return vos::failed(me, VOS_ERROR, "%s:vosMsgRecvStream1 failed.");
    if (static_cast<uint64_t>(received) < expected)
        vos::trace(me, "%s:read need read %d but read only %d.", static_cast<int32_t>(expected), received);
    if (head.ulRetCode == 0 && !whole(static_cast<uint32_t>(received), head.ulValue3, *length))
        return vos::failed(me, VOS_ERROR, "%s:answer of %d bytes leaves %u of %u.", received, head.ulValue3, *length);
    if (head.ulRetCode == 0) *length = head.ulValue3;
    return static_cast<int32_t>(head.ulRetCode);
}

}  // namespace

int32_t vos::answerRunningConfig(Caller me, const Arrival &request) {
    trace(me, "%s:receive VOS_MSG_TYPE_BLDRUN.");
    VOS_MSG_HEAD head = request.head();
    if (g_vosBldrunProc == nullptr) {
        error(me, "%s:bldrun when g_vosBldrunProc is null.");
        return refuse(me, request, head, VOS_ERR_NO_HANDLER);
    }
    const TextBuffer text = allocateText(head.ulBufLen);
    if (!text) {
        error(me, "%s:bldrun malloc %d failed.", head.ulBufLen);
        return refuse(me, request, head, VOS_ERR_MEMORY);
    }
    int32_t room = 0;
    if (const int32_t code = build(me, head, text.get(), room); code != 0) return refuse(me, request, head, code);
    head.ulRetCode = 0;
    head.ulValue3 = static_cast<uint32_t>(room);
    head.ulBufLen -= static_cast<uint32_t>(room);
    return sendAnswer(me, request, head, text.get(), head.ulBufLen);
}

int32_t vosMsgBldrunSend(const char *pDestName, char *pBuf, uint32_t *pLen, uint32_t ulValue1, uint32_t ulValue2) {
    const Caller me;
    vos::trace(me, "%s:start.");
    if (pDestName == nullptr || pBuf == nullptr || pLen == nullptr)
        return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    if (*pLen <= kHeadSize) return VOS_ERROR;
    vos::Requester requester;
    if (!requester.open(me, kTimeoutMs)) return VOS_ERROR;
    VOS_MSG_HEAD head{};
    head.ulType = VOS_MSG_TYPE_BLDRUN;
    head.ulValue1 = ulValue1;
    head.ulValue2 = ulValue2;
    head.ulBufLen = *pLen;
    const vos::Path path = vos::highPath(pDestName);
    if (!requester.connect(path.view())) return vos::failedErrno(me, VOS_ERROR, "%s:connect failed errno:%d(%s).");
    const ssize_t sent = vos::writeMessage(requester.origin(VOS_MSG_TAP_REQUEST), requester.fd(), &head, kHeadSize);
    if (sent < 0) return vos::failedErrno(me, VOS_ERROR, "%s:write failed errno:%d(%s).");
    if (sent < ssize_t{kHeadSize})
        vos::error(me, "%s:write need send %d but send only %d.", int32_t{kHeadSize}, static_cast<int32_t>(sent));
    const int32_t result = receiveAnswer(me, requester, head, pBuf, pLen);
    requester.close();
    return vos::ended(me, result);
}
