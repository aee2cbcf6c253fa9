/* SPDX-License-Identifier: MIT */
#include "ownSockets.h"

#include <sys/un.h>

#include <algorithm>
#include <array>

#include "vosMsgChannel.h"
#include "vosMsgTap.h"

constinit int32_t g_vosFdProc = -1;
constinit int32_t g_vosFdProcHigh = -1;
constinit int32_t g_vosFdNLUni = -1;
constinit int32_t g_vosFdProc_thread = -1;
constinit int32_t g_vosFdProcHigh_thread = -1;

namespace {

/* The sockets of the process's channels. */
struct Entry {
    const int32_t *fd;
    uint8_t kind;
};

constexpr Entry kSockets[] = {
    {&g_vosFdProc, VOS_MSG_TAP_NORMAL},        {&g_vosFdProcHigh, VOS_MSG_TAP_HIGH},
    {&g_vosFdProc_thread, VOS_MSG_TAP_SECOND}, {&g_vosFdProcHigh_thread, VOS_MSG_TAP_SECOND_HIGH},
    {&g_vosFdNLUni, VOS_MSG_TAP_NETLINK},
};

/* Their paths, in the same order. A path is written before its descriptor is stored, and stays. */
struct OwnPath {
    uint32_t length;
    std::array<char, sizeof sockaddr_un::sun_path> text;
    [[nodiscard]] std::string_view view() const { return {text.data(), length}; }
};
constinit std::array<OwnPath, std::size(kSockets)> g_paths{};

}  // namespace

void vos::storeOwnSocket(int32_t *owner, int32_t fd, std::string_view path) {
    const auto *const entry = std::ranges::find(kSockets, owner, &Entry::fd);
    if (entry != std::end(kSockets)) {
        OwnPath &own = g_paths[static_cast<std::size_t>(entry - kSockets)];
        own.length = static_cast<uint32_t>(std::min(path.size(), own.text.size()));
        std::copy_n(path.data(), own.length, own.text.data());
    }
    __atomic_store_n(owner, fd, __ATOMIC_RELEASE);
}

vos::OwnSocket vos::ownSocket(int32_t fd) {
    if (fd < 0) return {0, {}};
    for (std::size_t i = 0; i < std::size(kSockets); ++i)
        if (__atomic_load_n(kSockets[i].fd, __ATOMIC_ACQUIRE) == fd) return {kSockets[i].kind, g_paths[i].view()};
    return {0, {}};
}

std::string_view vos::processPath() {
    if (__atomic_load_n(kSockets[0].fd, __ATOMIC_ACQUIRE) < 0) return {};
    return g_paths[0].view();
}
