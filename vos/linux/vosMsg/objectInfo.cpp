/* SPDX-License-Identifier: MIT */
/* Descriptions of configuration objects: the request to another process, and the answer to such a request. */
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "../base/assertion.h"
#include "../base/log.h"
#include "../base/wire.h"
#include "address.h"
#include "message.h"
#include "requester.h"

namespace {

using vos::Caller;
using vos::kHeadSize;

constexpr uint32_t kTimeoutMs = 10000;
constexpr std::size_t kTableWords = 32;

/* What a handler fills and a requester receives: outputs 1 to 10. Output 7 is the number of table words in use. */
struct Description {
    std::array<uint32_t, 11> out{}; /* [0] is not used */
    std::array<uint32_t, kTableWords> table{};
};

/* Name, NUL, padding to a whole word. */
uint64_t paddedSize(const char *name) { return (uint64_t{strlen(name)} + 1 + 3) & ~uint64_t{3}; }

int32_t ask(char *name, uint32_t argument, Description &to) {
    auto &out = to.out;
    return g_vosCcdObjInfoGetProc(name, argument, &out[1], &out[2], &out[3], &out[4], &out[5], &out[6], to.table.data(),
                                  &out[7], &out[8], &out[9], &out[10]);
}

/* The name is moved first: it may lie in the same buffer, also where the header goes. */
uint32_t writeRequest(const char *name, uint32_t nameSize, uint32_t argument) {
    VOS_MSG_HEAD head{};
    head.ulType = VOS_MSG_TYPE_CCD_OBJ_INFO_GET;
    head.ulValue1 = argument;
    head.ulValue2 = nameSize;
    memmove(g_vosMsgBufferSend + kHeadSize, name, strlen(name) + 1);
    memcpy(g_vosMsgBufferSend, &head, kHeadSize);
    return kHeadSize + nameSize;
}

/* Outputs 8 to 10 are read right behind the words that the count announces, although an answer always holds the whole
 * table: with a count below 32 they are table words. This is required. Do not repair it: existing applications rely on
 * what they get. */
bool readAnswer(std::span<const uint8_t> answer, Description &to) {
    vos::WordReader in{answer};
    VOS_MSG_HEAD head;
    memcpy(&head, in.bytes(kHeadSize)->data(), sizeof head);
    to.out[1] = head.ulValue2;
    to.out[2] = head.ulValue3;
    const auto nameSize = in.word();
    if (!nameSize || !in.bytes(*nameSize)) return false;
    const auto take = [&](uint32_t &word) {
        const auto taken = in.word();
        word = taken.value_or(0);
        return taken.has_value();
    };
    for (std::size_t i = 3; i <= 7; ++i)
        if (!take(to.out[i])) return false;
    if (to.out[7] > kTableWords) return false;
    for (std::size_t i = 0; i < to.out[7]; ++i)
        if (!take(to.table[i])) return false;
    return take(to.out[8]) && take(to.out[9]) && take(to.out[10]);
}

/* Receives the answer into the send buffer, and takes from it the header and, when its code is 0, the description. */
int32_t receiveAnswer(Caller me, const vos::Requester &requester, VOS_MSG_HEAD &head, Description &description) {
    const ssize_t count =
        vos::readMessage(requester.origin(VOS_MSG_TAP_ANSWER), requester.fd(), g_vosMsgBufferSend, VOS_MSG_BUFFER_LEN);
    if (count < 0) return vos::failedErrno(me, VOS_ERROR, "%s:read failed errno:%d(%s).");
    const auto received = static_cast<uint32_t>(count);
    if (received < VOS_MSG_BUFFER_LEN)
        vos::trace(me, "%s:read need read %d but read only %d.", VOS_MSG_BUFFER_LEN, received);
    memcpy(&head, g_vosMsgBufferSend, sizeof head);
    const bool whole =
        received >= kHeadSize && (head.ulRetCode != 0 || readAnswer({g_vosMsgBufferSend, received}, description));
    if (!whole) return vos::failed(me, VOS_ERROR, "%s:answer of %u bytes is malformed.", received);
    errno = static_cast<int>(head.ulValue4); /* the caller sees the responder's */
    return VOS_OK;
}

}  // namespace

int32_t vos::answerObjectInfo(Caller me, const Arrival &arrival) {
    trace(me, "%s:receive VOS_MSG_TYPE_CCD_OBJ_INFO_GET.");
    if (g_vosCcdObjInfoGetProc == nullptr) return VOS_OK;
    VOS_MSG_HEAD head = arrival.head();
    const uint32_t nameSize = head.ulValue2;
    WordReader in{arrival.payload()};
    if (!in.text(nameSize))
        return failed(me, VOS_ERROR, "%s:object request of %lu bytes is malformed.", arrival.message.size());
    check(kHeadSize + in.offset() < VOS_MSG_BUFFER_LEN, "iRecvLen < VOS_MSG_BUFFER_LEN", kMsgArea, me);
    Description description;
    constexpr std::size_t kBesidesName = kHeadSize + 4 + 5 * 4 + sizeof description.table + 3 * 4;
    if (nameSize > VOS_MSG_BUFFER_LEN - kBesidesName)
        return failed(me, VOS_ERROR, "%s:object answer does not fit a message.");
    auto *const name = reinterpret_cast<char *>(arrival.payload().data());
    head.ulRetCode = static_cast<uint32_t>(ask(name, head.ulValue1, description));
    head.ulValue4 = static_cast<uint32_t>(errno);
    const auto &out = description.out;
    head.ulValue2 = out[1];
    head.ulValue3 = out[2];
    AnswerWriter answer{g_vosMsgBufferSend};
    answer.bytes(&head, sizeof head);
    answer.word(nameSize);
    answer.bytes(name, nameSize);
    answer.bytes(&out[3], 5 * sizeof out[3]);
    answer.bytes(description.table.data(), sizeof description.table);
    answer.bytes(&out[8], 3 * sizeof out[8]);
    return sendStream(kAnswer, arrival.socket, g_vosMsgBufferSend, answer.length(), arrival.sender,
                      answerLength(arrival.senderLength));
}

int32_t vosMsgCcdObjInfoGetSend(uint32_t *pRetCode, const char *pDestName, const char *pObjName, uint32_t ulValue1,
                                uint32_t *pOut1, uint32_t *pOut2, uint32_t *pOut3, uint32_t *pOut4, uint32_t *pOut5,
                                uint32_t *pOut6, uint32_t *pTable, uint32_t *pCount, uint32_t *pOut8, uint32_t *pOut9,
                                uint32_t *pOut10) {
    const Caller me;
    uint32_t *const outputs[] = {pOut1, pOut2, pOut3, pOut4, pOut5, pOut6, pCount, pOut8, pOut9, pOut10};
    if (pRetCode == nullptr || pDestName == nullptr || pObjName == nullptr || pTable == nullptr ||
        std::ranges::count(outputs, nullptr) > 0)
        return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    vos::trace(me, "%s:start object %s.", vos::outside(pObjName));
    const uint64_t nameSize = paddedSize(pObjName);
    if (nameSize > vos::kMaxPayload) return vos::failed(me, VOS_ERR_TOO_LONG, "%s:ulMsgSize too long.");
    const vos::Path path = vos::normalPath(pDestName); /* before the request: the name may lie in the same buffer */
    const uint32_t size = writeRequest(pObjName, static_cast<uint32_t>(nameSize), ulValue1);
    vos::Requester requester;
    if (!requester.open(me, kTimeoutMs)) return VOS_ERROR;
    if (!requester.connect(path.view())) return vos::failedErrno(me, VOS_ERROR, "%s:connect failed errno:%d(%s).");
    const ssize_t sent =
        vos::writeMessage(requester.origin(VOS_MSG_TAP_REQUEST), requester.fd(), g_vosMsgBufferSend, size);
    if (sent < 0) return vos::failedErrno(me, VOS_ERROR, "%s:write failed errno:%d(%s).");
    if (sent < ssize_t{size})
        vos::error(me, "%s:write need send %d but send only %d.", size, static_cast<int32_t>(sent));
    VOS_MSG_HEAD head{};
    Description description;
    const int32_t result = receiveAnswer(me, requester, head, description);
    if (result == VOS_OK) *pRetCode = head.ulRetCode;
    if (result == VOS_OK && head.ulRetCode == 0) {
        for (std::size_t i = 0; i < std::size(outputs); ++i) *outputs[i] = description.out[i + 1];
        memcpy(pTable, description.table.data(), description.out[7] * sizeof(uint32_t));
    }
    requester.close();
    return vos::ended(me, result);
}
