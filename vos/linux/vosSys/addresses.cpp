/* SPDX-License-Identifier: MIT */
/* Internet addresses: conversions from and to text, and the look-up of a host name. */
#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>

#include "../base/log.h"
#include "../base/text.h"
#include "vosSys.h"

namespace {

constexpr std::size_t kLongestDotted = 31;
constexpr int kDots = 3;

int dotsIn(std::string_view text) {
    int dots = 0;
    for (; dots < kDots; ++dots) {
        const std::size_t at = text.find('.');
        if (at == std::string_view::npos) break;
        text.remove_prefix(at + 1);
    }
    return dots;
}

}  // namespace

int32_t vosInetPton(int32_t iFamily, const char *pText, void *pAddr) {
    const vos::Caller me;
    if (pText == nullptr || pAddr == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    return inet_pton(iFamily, pText, pAddr);
}

const char *vosInetNtop(int32_t iFamily, const void *pAddr, char *pBuf, uint32_t ulLen) {
    const vos::Caller me;
    if (pAddr != nullptr && pBuf != nullptr) return inet_ntop(iFamily, pAddr, pBuf, ulLen);
    vos::error(me, "%s:parameter error.");
    return nullptr;
}

char *vosInetNtoA(uint32_t ulAddr) { return inet_ntoa(in_addr{ulAddr}); }

uint32_t vosInetAddr(const char *pText) {
    const vos::Caller me;
    if (pText == nullptr) {
        vos::error(me, "%s:parameter error.");
        return INADDR_NONE;
    }
    const std::string_view given{pText, strnlen(pText, kLongestDotted + 1)};
    if (given.size() > kLongestDotted) return INADDR_NONE;
    vos::Text<kLongestDotted + kDots * 2 + 1> dotted;
    dotted.append(given);
    for (int dots = dotsIn(given); dots < kDots; ++dots) dotted.append(".0");
    return inet_addr(dotted.get());
}

uint32_t vosGetAddrIpv4(const char *pHost) {
    addrinfo hints = {};
    hints.ai_flags = AI_PASSIVE;
    hints.ai_family = AF_INET;
    addrinfo *list = nullptr;
    if (getaddrinfo(pHost, nullptr, &hints, &list) != 0 || list == nullptr) return 0;
    uint32_t address = 0;
    if (list->ai_addr != nullptr) {
        sockaddr_in first;
        memcpy(&first, list->ai_addr, sizeof first);
        address = ntohl(first.sin_addr.s_addr);
    }
    freeaddrinfo(list);
    return address;
}
