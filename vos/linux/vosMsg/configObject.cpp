/* SPDX-License-Identifier: MIT */
/* Answers an access to a configuration object through the registered handler. */
#include <algorithm>
#include <cerrno>
#include <optional>

#include "../base/assertion.h"
#include "../base/log.h"
#include "../base/wire.h"
#include "message.h"

namespace {

using vos::Caller;

/* As many index words as a message can carry: the handler may return up to that number. */
constexpr std::size_t kMaxIndexes = vos::kMaxPayload / sizeof(uint32_t);

/* Where the pieces of a request lie in its message. */
struct Request {
    std::span<const uint8_t> indexes;
    char *name;
    uint32_t nameSize;
    uint8_t *value;
    uint32_t valueRoom; /* bytes from the value to the end of the buffer */
    uint32_t valueSize; /* the length that the requester announced, at most the room */
};

std::optional<Request> parse(Caller me, const vos::Arrival &arrival) {
    vos::WordReader in{arrival.message};
    in.bytes(vos::kHeadSize);
    const auto indexes = in.bytes(uint64_t{arrival.head().ulValue2} * sizeof(uint32_t));
    const auto nameSize = indexes ? in.word() : std::nullopt;
    const std::size_t nameAt = in.offset();
    const auto name = nameSize ? in.text(*nameSize) : std::nullopt;
    const auto valueSize = name ? in.word() : std::nullopt;
    if (!valueSize) {
        vos::error(me, "%s:ccd request of %lu bytes is malformed.", arrival.message.size());
        return std::nullopt;
    }
    vos::trace(me, "%s:ccd object %s.", vos::outside(*name));
    uint8_t *const value = arrival.message.data() + in.offset();
    vos::check(vos::aligned(value, ZEB_LONGBYTES), "0 == (((uintptr_t)pValueBuf) % ZEB_LONGBYTES)", vos::kMsgArea, me);
    vos::check(in.offset() < VOS_MSG_BUFFER_LEN, "iRecvLen < VOS_MSG_BUFFER_LEN", vos::kMsgArea, me);
    /* A thread's own buffer may be larger than a message; the answer may not. */
    const std::size_t end = std::min<std::size_t>(arrival.room, VOS_MSG_BUFFER_LEN);
    const auto room = static_cast<uint32_t>(end - in.offset());
    return Request{
        .indexes = *indexes,
        .name = reinterpret_cast<char *>(arrival.message.data() + nameAt),
        .nameSize = *nameSize,
        .value = value,
        .valueRoom = room,
        .valueSize = std::min(*valueSize, room),
    };
}

/* A requester may announce more bytes than it has sent. The buffer behind those holds parts of earlier messages, which
 * are not for this requester. */
void clearWhatDidNotCome(const vos::Arrival &arrival, const Request &request) {
    const auto came = static_cast<std::size_t>(arrival.message.data() + arrival.message.size() - request.value);
    if (came < request.valueSize) memset(request.value + came, 0, request.valueSize - came);
}

/* What the handler has returned. */
struct Result {
    int32_t code;
    int32_t indexCount;
    uint32_t valueSize;
    uint16_t value16;
    int error;
};

int32_t answer(Caller me, const vos::Arrival &arrival, const Request &request, const Result &result,
               const uint32_t *indexes) {
    if (result.indexCount < 0 || static_cast<std::size_t>(result.indexCount) > kMaxIndexes)
        return vos::failed(me, VOS_ERROR, "%s:ccd handler left %d indexes.", result.indexCount);
    VOS_MSG_HEAD head = arrival.head();
    head.ulRetCode = static_cast<uint32_t>(result.code);
    head.ulValue2 = static_cast<uint32_t>(result.indexCount);
    head.ulValue3 = result.value16;
    head.ulValue4 = static_cast<uint32_t>(result.error);
    vos::AnswerWriter out{g_vosMsgBufferSend};
    out.bytes(&head, sizeof head);
    out.bytes(indexes, uint64_t{head.ulValue2} * sizeof(uint32_t));
    out.word(request.nameSize);
    out.bytes(request.name, request.nameSize);
    out.word(result.valueSize);
    if (result.code == 0) out.bytes(request.value, result.valueSize);
    if (!out.fits()) return vos::failed(me, VOS_ERROR, "%s:ccd answer does not fit a message.");
    return vos::sendStream(vos::kAnswer, arrival.socket, g_vosMsgBufferSend, out.length(), arrival.sender,
                           vos::answerLength(arrival.senderLength));
}

}  // namespace

int32_t vos::answerConfigObject(Caller me, const Arrival &arrival) {
    trace(me, "%s:receive VOS_MSG_TYPE_CCD.");
    if (g_vosCcdProc == nullptr) return VOS_OK;
    const auto request = parse(me, arrival);
    if (!request) return VOS_ERROR;
    const VOS_MSG_HEAD head = arrival.head();
    clearWhatDidNotCome(arrival, *request);
    uint32_t indexes[kMaxIndexes]; /* on the stack: a handler may use the message buffers for requests of its own */
    memcpy(indexes, request->indexes.data(), request->indexes.size());
    Result result{0, static_cast<int32_t>(head.ulValue2), request->valueSize, static_cast<uint16_t>(head.ulValue3), 0};
    result.code = g_vosCcdProc(head.ulValue1, request->name, indexes, &result.indexCount, request->value,
                               &result.valueSize, &result.value16);
    result.error = errno;
    check(result.code != 0 || result.valueSize <= request->valueRoom, "*pValueLen <= (uint32_t)iTmpLen", kMsgArea, me);
    return head.ulNoReturn != 0 ? VOS_OK : answer(me, arrival, *request, result, indexes);
}
