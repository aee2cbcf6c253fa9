/* SPDX-License-Identifier: MIT */
/* A process is reached by name: names become paths, paths become addresses. */
#include "address.h"

#include <pthread.h>
#include <unistd.h>

#include <cstring>
#include <string_view>

#include "../base/log.h"
#include "vosMsg.h"

namespace {

constexpr uint32_t kLastSequence = 127;
constexpr std::size_t kPathRoom = 128; /* what callers of vosMsgNLChangePath() provide */

/* Plain data of all threads: two that meet here may take the same number, and their thread ids keep them apart. */
constinit uint32_t g_vosMsgClientSeq = 1;

uint32_t takeSequence() {
    const uint32_t taken = __atomic_load_n(&g_vosMsgClientSeq, __ATOMIC_RELAXED);
    __atomic_store_n(&g_vosMsgClientSeq, taken >= kLastSequence ? 1 : taken + 1, __ATOMIC_RELAXED);
    return taken;
}

std::string_view baseName(std::string_view name) {
    name.remove_prefix(name.rfind('/') + 1); /* npos + 1 is 0 */
    return name;
}

/* Family, path, NUL. The length tells the truth also about a path that does not fit, and the kernel refuses it. */
uint32_t fillAddress(std::string_view path, sockaddr_un &address) {
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.data(), std::min(path.size(), sizeof address.sun_path));
    return static_cast<uint32_t>(path.size() + sizeof address.sun_family + 1);
}

template <class Source>
void copyText(char *to, std::size_t size, const Source &text) {
    if (size == 0) return;
    const std::size_t length = std::min(text.length(), size - 1);
    memcpy(to, text.get(), length);
    to[length] = '\0';
}

}  // namespace

namespace vos {

static_assert(sizeof(sockaddr_un) == 110);

Path normalPath(const char *processName) {
    Path path;
    path.append("/tmp/vos/").append(baseName(processName));
    return path;
}

Path highPath(const char *processName) {
    Path path = normalPath(processName);
    path.append("High");
    return path;
}

Path threadPath(const char *processName, int32_t number) {
    Path path = normalPath(processName);
    path.appendDecimal(number);
    return path;
}

Text<128> requesterPath() {
    Text<128> path;
    path.append("/tmp/vos/clientp").appendDecimal(static_cast<uint64_t>(getpid()));
    path.append("t").appendDecimal(static_cast<uint64_t>(pthread_self()));
    path.append("v").appendDecimal(uint64_t{takeSequence()});
    return path;
}

LocalAddress::LocalAddress(std::string_view path) : room_{}, length_(fillAddress(path, local_)) {}

LocalAddress::LocalAddress(const sockaddr_un &address, uint32_t length) : room_{}, length_(length) {
    memcpy(&room_, &address, sizeof address);
}

bool bindTo(int socket, std::string_view path) {
    const LocalAddress address{path};
    unlink(path.data());
    return bind(socket, address.get(), address.length()) == 0;
}

}  // namespace vos

int32_t vosMsgNLChangePath(const char *pProcName, char *pPath) {
    const vos::Caller me;
    if (pProcName == nullptr || pPath == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    copyText(pPath, kPathRoom, vos::normalPath(pProcName));
    return VOS_OK;
}

int32_t vosMsgGetLocalFile(char *pPath, int32_t iSize) {
    const vos::Caller me;
    if (pPath == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    copyText(pPath, iSize > 0 ? static_cast<std::size_t>(iSize) : 0, vos::requesterPath());
    return VOS_OK;
}

int32_t vosMsgLocalAddrInit(const char *pPath, struct sockaddr_un *pAddr, uint32_t *pAddrLen) {
    const vos::Caller me;
    if (pPath == nullptr || pAddr == nullptr || pAddrLen == nullptr)
        return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    memset(pAddr, 0, sizeof *pAddr);
    *pAddrLen = fillAddress(pPath, *pAddr);
    return VOS_OK;
}
