/* SPDX-License-Identifier: MIT */
/* Interface names, indexes and MAC addresses; the type of this start. */
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "../base/log.h"
#include "../base/uniqueFd.h"
#include "vosSys.h"

namespace {

constexpr std::size_t kMacLength = 6;
constexpr uint32_t kColdStart = 0;
constexpr uint32_t kWarmStart = 1;

}  // namespace

int32_t vosIfNameToKernelIndex(const char *pName, uint32_t *pIndex) {
    if (pName == nullptr || pIndex == nullptr) return VOS_ERR_PARAM;
    const unsigned index = if_nametoindex(pName);
    if (index == 0) return VOS_ERROR;
    *pIndex = index;
    return VOS_OK;
}

char *vosIfKernelIndexToName(uint32_t ulIndex, char *pName) {
    const vos::Caller me;
    if (pName != nullptr) return if_indextoname(ulIndex, pName);
    vos::error(me, "%s:parameter error.");
    return nullptr;
}

int32_t vosIfKernelMacGet(const char *pName, uint8_t *pMac) {
    if (pName == nullptr || pMac == nullptr) return VOS_ERR_PARAM;
    const vos::UniqueFd socketFd{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    if (!socketFd) return VOS_ERROR;
    ifreq request = {};
    std::copy_n(pName, strnlen(pName, sizeof request.ifr_name - 1), request.ifr_name);
    if (ioctl(socketFd.get(), SIOCGIFHWADDR, &request) == -1) return VOS_ERROR;
    std::copy_n(request.ifr_hwaddr.sa_data, kMacLength, pMac);
    return VOS_OK;
}

int32_t vosStartTypeGet(uint32_t *pStartType) {
    if (pStartType == nullptr) return VOS_ERR_PARAM;
    *pStartType = access("/tmp/warmreboot", F_OK) == 0 ? kWarmStart : kColdStart;
    return VOS_OK;
}
