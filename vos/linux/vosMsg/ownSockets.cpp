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

/* A socket of the process's channels, with its path. A path is written before its descriptor is stored, and stays. */
struct Entry {
    const int32_t *fd;
    uint8_t kind;
    uint32_t length = 0;
    std::array<char, sizeof sockaddr_un::sun_path> path{};
};

constinit Entry g_sockets[] = {
    {&g_vosFdProc, VOS_MSG_TAP_NORMAL},        {&g_vosFdProcHigh, VOS_MSG_TAP_HIGH},
    {&g_vosFdProc_thread, VOS_MSG_TAP_SECOND}, {&g_vosFdProcHigh_thread, VOS_MSG_TAP_SECOND_HIGH},
    {&g_vosFdNLUni, VOS_MSG_TAP_NETLINK},
};

}  // namespace

void vos::storeOwnSocket(int32_t *owner, int32_t fd, std::string_view path) {
    Entry *const entry = std::ranges::find(g_sockets, owner, &Entry::fd);
    if (entry != std::end(g_sockets)) {
        entry->length = static_cast<uint32_t>(std::min(path.size(), entry->path.size()));
        std::copy_n(path.data(), entry->length, entry->path.data());
    }
    __atomic_store_n(owner, fd, __ATOMIC_RELEASE);
}

vos::OwnSocket vos::ownSocket(int32_t fd) {
    if (fd < 0) return {0, {}};
    for (const Entry &entry : g_sockets)
        if (__atomic_load_n(entry.fd, __ATOMIC_ACQUIRE) == fd) return {entry.kind, {entry.path.data(), entry.length}};
    return {0, {}};
}

std::string_view vos::processPath() {
    const Entry &normal = g_sockets[0];
    if (__atomic_load_n(normal.fd, __ATOMIC_ACQUIRE) < 0) return {};
    return {normal.path.data(), normal.length};
}
