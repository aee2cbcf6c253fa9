/* SPDX-License-Identifier: MIT */
/* The system calls that move messages. Each sends copies to the taps that are on, see vosMsgTap.h, and costs one load
 * and one branch more than the bare call while none is. */
#ifndef VOS_MSG_TRANSFER_H
#define VOS_MSG_TRANSFER_H

#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>

#include "vosMsgTap.h"

namespace vos {

class Requester;

/* What a copy tells of a message that neither the message nor the call shows. */
struct Origin {
    uint8_t stage;    /* VOS_MSG_TAP_PLAIN and so on */
    uint8_t unlisted; /* what the socket is when it is none of the process's own: VOS_MSG_TAP_OTHER and so on */
    const Requester *requester = nullptr; /* whose socket it is; null: nobody's */
};

/* The stage of what a receive loop gets: the message itself shows whether its sender may be answered. */
inline constexpr uint8_t kArrivedStage = 0xFF;

/* The application's own call. */
inline constexpr Origin kApplication{VOS_MSG_TAP_PLAIN, VOS_MSG_TAP_OTHER};
/* In a receive loop only a thread channel's socket is not listed; so it is with the answers. */
inline constexpr Origin kReceiveLoop{kArrivedStage, VOS_MSG_TAP_THREAD};
inline constexpr Origin kAnswer{VOS_MSG_TAP_ANSWER, VOS_MSG_TAP_THREAD};
inline constexpr Origin kControl{VOS_MSG_TAP_ONE_WAY, VOS_MSG_TAP_OTHER};

/* One bit for each tap that is on; see tap.h. */
[[gnu::visibility("hidden")]] extern uint32_t g_tapsOn;
inline bool tapped() { return __atomic_load_n(&g_tapsOn, __ATOMIC_RELAXED) != 0; }

/* The calls with copies, out of line. */
ssize_t sendToTapped(Origin origin, int fd, const void *buffer, std::size_t size, const sockaddr *to, socklen_t length);
ssize_t sendMessageTapped(Origin origin, int fd, const msghdr *message);
ssize_t receiveFromTapped(Origin origin, int fd, void *buffer, std::size_t size, sockaddr *from, socklen_t *length);
ssize_t receiveMessageTapped(Origin origin, int fd, msghdr *message);
ssize_t writeTapped(Origin origin, int fd, const void *buffer, std::size_t size);
ssize_t readTapped(Origin origin, int fd, void *buffer, std::size_t size);

inline ssize_t sendTo(const Origin &origin, int fd, const void *buffer, std::size_t size, const sockaddr *to,
                      socklen_t length) {
    if (tapped()) [[unlikely]]
        return sendToTapped(origin, fd, buffer, size, to, length);
    return sendto(fd, buffer, size, 0, to, length);
}

inline ssize_t sendMessage(const Origin &origin, int fd, const msghdr *message) {
    if (tapped()) [[unlikely]]
        return sendMessageTapped(origin, fd, message);
    return sendmsg(fd, message, 0);
}

inline ssize_t receiveFrom(const Origin &origin, int fd, void *buffer, std::size_t size, sockaddr *from,
                           socklen_t *length) {
    if (tapped()) [[unlikely]]
        return receiveFromTapped(origin, fd, buffer, size, from, length);
    return recvfrom(fd, buffer, size, 0, from, length);
}

inline ssize_t receiveMessage(const Origin &origin, int fd, msghdr *message) {
    if (tapped()) [[unlikely]]
        return receiveMessageTapped(origin, fd, message);
    return recvmsg(fd, message, 0);
}

inline ssize_t writeMessage(const Origin &origin, int fd, const void *buffer, std::size_t size) {
    if (tapped()) [[unlikely]]
        return writeTapped(origin, fd, buffer, size);
    return write(fd, buffer, size);
}

inline ssize_t readMessage(const Origin &origin, int fd, void *buffer, std::size_t size) {
    if (tapped()) [[unlikely]]
        return readTapped(origin, fd, buffer, size);
    return read(fd, buffer, size);
}

/* Reports a request that was not sent, because nobody receives under its path. errno is kept. */
void copyUnreachable(const Requester &requester);

}  // namespace vos

#endif
