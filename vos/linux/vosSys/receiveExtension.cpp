/* SPDX-License-Identifier: MIT */
/* A receive with the data that the device's kernel appends to a datagram. */
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cstddef>

#include "../base/log.h"
#include "vosSys.h"

namespace {

/* Asks the device's kernel for the extension data; other kernels do not know these bits and append nothing. */
constexpr int kAppendExtension = 0x0F000000;

static_assert(sizeof(VOS_RECV_EXT) == 40 && offsetof(VOS_RECV_EXT, aucData) == 12,
              "the order in which they follow the payload");

}  // namespace

int32_t vosRecvfromExt(int32_t iFd, void *pBuf, uint32_t ulLen, int32_t iFlags, struct sockaddr *pAddr,
                       uint32_t * /*pAddrLen*/, VOS_RECV_EXT *pExt) {
    const vos::Caller me;
    if (pExt == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    VOS_RECV_EXT extension = {.ulWord1 = 1, .ulWord2 = 1, .ulWord3 = 1, .aucData = {}};
    std::array<iovec, 5> parts{{{pBuf, ulLen},
                                {&extension.ulWord1, sizeof extension.ulWord1},
                                {&extension.ulWord2, sizeof extension.ulWord2},
                                {&extension.ulWord3, sizeof extension.ulWord3},
                                {extension.aucData, sizeof extension.aucData}}};
    msghdr header = {};
    header.msg_name = pAddr;
    header.msg_namelen = sizeof(sockaddr_in);
    header.msg_iov = parts.data();
    header.msg_iovlen = parts.size();
    const auto received = static_cast<int32_t>(recvmsg(iFd, &header, iFlags | kAppendExtension));
    if (received > 0) *pExt = extension;
    return received;
}
