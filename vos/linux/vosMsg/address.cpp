/* SPDX-License-Identifier: MIT */
/* A process is reached by name: names become paths, paths become addresses. */
#include "address.h"

#include <pthread.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <string_view>

#include "../base/log.h"
#include "../base/processId.h"
#include "vosMsg.h"

namespace {

constexpr uint32_t kLastSequence = 127;
constexpr std::size_t kPathRoom = 128; /* what callers of vosMsgNLChangePath() provide */

/* The number that the next requester of this process gets, whichever thread it runs in. */
constinit uint32_t g_vosMsgClientSeq = 1;

constexpr uint32_t after(uint32_t sequence) { return sequence >= kLastSequence ? 1 : sequence + 1; }

/* One atomic step: no two threads take the same number, and none sets the counter back. A number then returns only
 * after 126 others, so that a late answer to the path that had it before meets a new requester as seldom as possible.
 */
uint32_t takeSequence() {
    uint32_t taken = __atomic_load_n(&g_vosMsgClientSeq, __ATOMIC_RELAXED);
    while (!__atomic_compare_exchange_n(&g_vosMsgClientSeq, &taken, after(taken), true, __ATOMIC_RELAXED,
                                        __ATOMIC_RELAXED))
        continue;
    return taken;
}

std::string_view baseName(std::string_view name) {
    const void *const slash = memrchr(name.data(), '/', name.size());
    if (slash != nullptr)
        name.remove_prefix(static_cast<std::size_t>(static_cast<const char *>(slash) + 1 - name.data()));
    return name;
}

/* What all paths of a thread's requests begin with. It is long, and stays the same: writing it is left to the first
 * request of each thread, and of each child. */
struct RequesterStem {
    pid_t process;
    uint32_t length;
    std::array<char, 128> text; /* as a path has, which is more than it needs: the compiler sees that it fits */
    [[nodiscard]] std::string_view view() const { return {text.data(), length}; }
};

/* In the room that every thread has for such data from its start: the address takes no call. */
[[gnu::tls_model("initial-exec")]] constinit thread_local RequesterStem g_stem{};

[[gnu::noinline]] void writeStem(pid_t process) {
    vos::Text<sizeof g_stem.text> stem;
    stem.append("/tmp/vos/clientp").appendDecimal(process);
    stem.append("t").appendDecimal(static_cast<uint64_t>(pthread_self())).append("v");
    memcpy(g_stem.text.data(), stem.get(), stem.length());
    g_stem.length = static_cast<uint32_t>(stem.length());
    g_stem.process = process;
}

std::string_view requesterStem() {
    const pid_t process = vos::processId();
    if (g_stem.process != process) [[unlikely]]
        writeStem(process);
    return g_stem.view();
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
    path.append(requesterStem()).appendDecimal(takeSequence());
    return path;
}

/* Behind the path only its NUL is set, unless the whole room will be read. */
LocalAddress::LocalAddress(std::string_view path) {
    if (path.size() < sizeof local_.sun_path) [[likely]]
        local_.sun_path[path.size()] = '\0';
    else
        room_ = {};
    length_ = fillAddress(path, local_);
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
