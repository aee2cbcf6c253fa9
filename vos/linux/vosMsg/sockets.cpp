/* SPDX-License-Identifier: MIT */
/* Time-outs and buffer sizes of message sockets. What cannot be set is logged, and the socket is used as it is. */
#include <sys/socket.h>
#include <sys/time.h>

#include <span>

#include "../base/log.h"
#include "address.h"
#include "message.h"

namespace {

struct Buffer {
    int option;
    uint32_t size;
    vos::LogText<> setFailed;
    vos::LogText<> getFailed;
    vos::LogText<int32_t, int32_t> tooSmall;
};

constexpr Buffer kLocal[] = {
    {SO_SNDBUF, vos::kSendBuffer, "%s:SO_SNDBUF failed.", "%s: getsockopt SO_SNDBUF failed.",
     "%s: SO_SNDBUF set %d but only %d, need to just KERNEL_NET_MEM_MAX value."},
    {SO_RCVBUF, vos::kReceiveBuffer, "%s:SO_RCVBUF failed.", "%s: getsockopt SO_RCVBUF failed.",
     "%s: SO_RCVBUF set %d but only %d, need to just KERNEL_NET_MEM_MAX value."},
};

/* The two full stops at the ends are on purpose: the texts are fixed. */
constexpr Buffer kNetlink[] = {
    {SO_SNDBUF, vos::kSendBuffer, "%s:SO_SNDBUF failed.", "%s: getsockopt SO_SNDBUF failed.",
     "%s: SO_SNDBUF set %d but only %d, need to just KERNEL_NET_MEM_MAX value.."},
    {SO_RCVBUF, vos::kReceiveBuffer, "%s:SO_RCVBUF failed.", "%s: getsockopt SO_RCVBUF failed.",
     "%s: SO_RCVBUF set %d but only %d, need to just KERNEL_NET_MEM_MAX value.."},
};

/* The kernel doubles what is asked for and limits it to its own maximum. */
void verifyBuffer(vos::Caller me, int socket, const Buffer &buffer) {
    const auto asked = static_cast<int32_t>(buffer.size);
    int32_t granted = 0;
    socklen_t length = sizeof granted;
    if (getsockopt(socket, SOL_SOCKET, buffer.option, &granted, &length) < 0)
        vos::error(me, buffer.getFailed);
    else if (granted != 2 * asked)
        vos::error(me, buffer.tooSmall, asked, granted);
}

int32_t tune(vos::Caller me, int socket, int32_t verify, std::span<const Buffer> buffers) {
    for (const Buffer &buffer : buffers) {
        const auto asked = static_cast<int32_t>(buffer.size);
        if (setsockopt(socket, SOL_SOCKET, buffer.option, &asked, sizeof asked) < 0) vos::error(me, buffer.setFailed);
        if (verify == 1) verifyBuffer(me, socket, buffer);
    }
    return VOS_OK;
}

}  // namespace

int32_t vosMsgLocalSocket(uint32_t ulTimeoutMs) {
    const vos::Caller me;
    const int fd = socket(AF_UNIX, vos::kDatagram, 0);
    if (fd < 0 || vos::flagSet(VOS_DEBUG_NO_TIMEOUTS)) return fd;
    const timeval limit{static_cast<time_t>(ulTimeoutMs / 1000), static_cast<suseconds_t>(ulTimeoutMs % 1000 * 1000)};
    if (setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) < 0)
        vos::errorErrno(me, "%s:setsockopt SO_SNDTIMEO failed errno:%d(%s).");
    if (setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) < 0)
        vos::errorErrno(me, "%s:setsockopt SO_RCVTIMEO failed errno:%d(%s).");
    return fd;
}

int32_t vosMsgSocketOptmize(int32_t iSocketFd, int32_t iVerify) {
    const vos::Caller me;
    return tune(me, iSocketFd, iVerify, kLocal);
}

int32_t vos::vosMsgNetlinkSocketOptmize(int32_t iSocketFd, int32_t iVerify) {
    const Caller me;
    return tune(me, iSocketFd, iVerify, kNetlink);
}
