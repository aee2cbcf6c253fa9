/* SPDX-License-Identifier: MIT */
/* The paths of message sockets, made of process names, and the addresses made of paths. */
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
constexpr std::size_t kPathSize = 128; /* what callers of vosMsgNLChangePath() provide */

/* The number that the next requester of this process gets, whichever thread it runs in. */
constinit uint32_t g_vosMsgClientSeq = 1;

constexpr uint32_t after(uint32_t sequence) { return sequence >= kLastSequence ? 1 : sequence + 1; }

/* One atomic step: no two threads take the same number, and none sets the counter back. A number then returns only
 * after 126 others, so that a late answer to an earlier requester reaches a new one as seldom as possible. */
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

/* What all paths of a thread's requests begin with. It is written once for each thread and each child: it takes longer
 * to format numbers than to copy a text. */
struct RequesterStem {
    pid_t process;
    uint32_t length;
    std::array<char, 128> text; /* as large as a path, so that the compiler sees that it fits into one */
    [[nodiscard]] std::string_view view() const { return {text.data(), length}; }
};

/* In the static part of thread-local storage (initial-exec): access takes no call of __tls_get_addr(). The price: the
 * shared object is marked DF_STATIC_TLS, and dlopen() refuses it when the C library has none of that part left. */
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

/* Family, path, NUL. The length is the true one also of a path that does not fit, so that the kernel refuses it. */
uint32_t fillAddress(std::string_view path, sockaddr_un &address) {
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.data(), std::min(path.size(), sizeof address.sun_path));
    return static_cast<uint32_t>(path.size() + sizeof address.sun_family + 1);
}

/* Cut to the size, NUL included; a size of 0 takes nothing. */
void copyText(char *to, std::size_t size, std::string_view text) {
    if (size == 0) return;
    const std::size_t length = std::min(text.size(), size - 1);
    memcpy(to, text.data(), length);
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

/* Behind the path only its NUL is set, unless the kernel may read on: see the class. */
LocalAddress::LocalAddress(std::string_view path) {
    if (path.size() < sizeof local_.sun_path) [[likely]]
        local_.sun_path[path.size()] = '\0';
    else
        storage_ = {};
    length_ = fillAddress(path, local_);
}

bool bindTo(int socket, const char *path) {
    const LocalAddress address{path};
    unlink(path);
    return bind(socket, address.get(), address.length()) == 0;
}

}  // namespace vos

int32_t vosMsgNLChangePath(const char *pProcName, char *pPath) {
    const vos::Caller me;
    if (pProcName == nullptr || pPath == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    copyText(pPath, kPathSize, vos::normalPath(pProcName).view());
    return VOS_OK;
}

int32_t vosMsgGetLocalFile(char *pPath, int32_t iSize) {
    const vos::Caller me;
    if (pPath == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    copyText(pPath, iSize > 0 ? static_cast<std::size_t>(iSize) : 0, vos::requesterPath().view());
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
