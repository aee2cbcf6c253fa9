/* SPDX-License-Identifier: MIT */
/* What the files of the message core share: the layout of messages, one received message, and a writer of answers. */
#ifndef VOS_MSG_MESSAGE_H
#define VOS_MSG_MESSAGE_H

#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "../base/caller.h"
#include "transfer.h"
#include "vosMsg.h"
#include "vosMsgChannel.h"

/* An application may define these buffers itself, with no more alignment than vosMsgCheck() asks for. Without the
 * attribute a compiler may take them for aligned to 16 bytes. */
// NOLINTBEGIN(readability-redundant-declaration)
#define VOS_ALIGNED_FOR_A_LONG __attribute__((aligned(ZEB_LONGBYTES)))
extern uint8_t g_vosMsgBufferRecv[VOS_MSG_BUFFER_LEN] VOS_ALIGNED_FOR_A_LONG;
extern uint8_t g_vosMsgBufferSend[VOS_MSG_BUFFER_LEN] VOS_ALIGNED_FOR_A_LONG;
extern uint8_t g_vosMsgBufferRecv_thread[VOS_MSG_BUFFER_LEN] VOS_ALIGNED_FOR_A_LONG;
extern uint8_t g_vosMsgBufferSend_thread[VOS_MSG_BUFFER_LEN] VOS_ALIGNED_FOR_A_LONG;
extern uint8_t g_vosMsgBufferResp_thread[VOS_MSG_BUFFER_LEN] VOS_ALIGNED_FOR_A_LONG;
#undef VOS_ALIGNED_FOR_A_LONG
// NOLINTEND(readability-redundant-declaration)

namespace vos {

/* The source shown in the message core's assertion lines. */
inline constexpr const char *kMsgArea = "vos/linux/vosMsg";

/* Layouts that processes, applications and the kernel module of other builds rely on. */
static_assert(sizeof(VOS_MSG_HEAD) == 32 && alignof(VOS_MSG_HEAD) == 4);
static_assert(offsetof(VOS_MSG_HEAD, ulType) == 0 && offsetof(VOS_MSG_HEAD, ulNoReturn) == 4);
static_assert(offsetof(VOS_MSG_HEAD, ulRetCode) == 8 && offsetof(VOS_MSG_HEAD, ulValue1) == 12);
static_assert(offsetof(VOS_MSG_HEAD, ulValue2) == 16 && offsetof(VOS_MSG_HEAD, ulValue3) == 20);
static_assert(offsetof(VOS_MSG_HEAD, ulValue4) == 24 && offsetof(VOS_MSG_HEAD, ulBufLen) == 28);
static_assert(sizeof(VOS_MSG_PEER) == 124 && alignof(VOS_MSG_PEER) == 4 && sizeof(sockaddr_un) == 110);
static_assert(offsetof(VOS_MSG_PEER, stAddr) == 0 && offsetof(VOS_MSG_PEER, ulAddrLen) == 112);
static_assert(offsetof(VOS_MSG_PEER, ulNoReturn) == 116 && offsetof(VOS_MSG_PEER, iSocketFd) == 120);
static_assert(sizeof(VOS_PKT_INFO) == 88 && sizeof(VOS_PKT_EXT) == 56);
static_assert(sizeof(long) == ZEB_LONGBYTES);
static_assert(VOS_MSG_BUFFER_LEN % ZEB_LONGBYTES == 0);

inline constexpr uint32_t kHeadSize = sizeof(VOS_MSG_HEAD);
inline constexpr uint32_t kMaxPayload = VOS_MSG_BUFFER_LEN - kHeadSize;
static_assert(kMaxPayload == 64568);

/* The buffer sizes that are requested for every message socket. Larger transfers are logged and tried. */
inline constexpr uint32_t kSendBuffer = 4194304;
inline constexpr uint32_t kReceiveBuffer = 6291456;

/* The length of an address to which an answer goes. The kernel reports 111 bytes for a sender whose path fills all 108
 * characters, and takes no address longer than 110. */
constexpr uint32_t answerLength(uint32_t reported) {
    return reported < sizeof(sockaddr_un) ? reported : uint32_t{sizeof(sockaddr_un)};
}

/* One received message. */
struct Arrival {
    int32_t socket;             /* where it came in and where an answer goes out */
    std::span<uint8_t> message; /* header and payload: the bytes that came */
    std::size_t room;           /* bytes of the real buffer from the header on: at least message.size() */
    const sockaddr *sender;
    uint32_t senderLength; /* as the kernel reports it; see answerLength() */

    [[nodiscard]] VOS_MSG_HEAD head() const {
        VOS_MSG_HEAD head;
        memcpy(&head, message.data(), sizeof head);
        return head;
    }
    [[nodiscard]] std::span<uint8_t> payload() const { return message.subspan(kHeadSize); }
};

/* Writes an answer into a buffer, from front to back. What would reach past the end is not written; fits() is then
 * false. */
class AnswerWriter {
  public:
    explicit AnswerWriter(std::span<uint8_t> room) : room_(room) {}

    void bytes(const void *from, uint64_t length) {
        fits_ = fits_ && length <= room_.size() - length_;
        if (!fits_ || length == 0) return;
        memcpy(&room_[length_], from, length);
        length_ += length;
    }
    void word(uint32_t value) { bytes(&value, sizeof value); }

    [[nodiscard]] bool fits() const { return fits_; }
    [[nodiscard]] uint32_t length() const { return static_cast<uint32_t>(length_); }

  private:
    std::span<uint8_t> room_;
    std::size_t length_ = 0;
    bool fits_ = true;
};

/* The four stream functions, for the library's own messages. They log under the names of the public ones. */
int32_t sendStream(const Origin &origin, int32_t fd, const void *buffer, uint32_t size, const sockaddr *to,
                   uint32_t length);
int32_t sendStream1(const Origin &origin, int32_t fd, const msghdr *message, uint32_t size);
int32_t receiveStream(const Origin &origin, int32_t fd, void *buffer, uint32_t size, sockaddr *from, uint32_t *length);
int32_t receiveStream1(const Origin &origin, int32_t fd, msghdr *message, uint32_t size);

/* Handles a message that is not the application's. Only the log shows the result. */
int32_t vosMsgProcessInternel(const Arrival &arrival);

/* Receives and handles one message of the kernel into a buffer of VOS_MSG_BUFFER_LEN bytes. `bufferLength` receives the
 * length of the datagram; when none comes it stays. */
int32_t vosMsgNetlinkUniProcess(int32_t iSocketFd, uint8_t *buffer, uint32_t &bufferLength);
/* The same for a datagram that has been received. */
int32_t handleNetlinkDatagram(Caller me, const Arrival &datagram);

/* The dispatcher calls these to answer requests. They log under the dispatcher's name. */
int32_t answerRunningConfig(Caller me, const Arrival &request);
int32_t answerConfigObject(Caller me, const Arrival &request);
int32_t answerObjectInfo(Caller me, const Arrival &request);

/* Switches a tap on or off. */
int32_t switchTap(Caller me, const Arrival &request);

}  // namespace vos

#endif
