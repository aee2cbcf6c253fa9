/* SPDX-License-Identifier: MIT */
/* Opens the process's receiving sockets, once. They stay open until the process ends. */
#include <linux/netlink.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "../base/log.h"
#include "../base/uniqueFd.h"
#include "address.h"
#include "ownSockets.h"
#include "vosMsg.h"
#include "vosMsgChannel.h"

namespace {

using vos::Caller;
using vos::UniqueFd;

constexpr uint32_t kTimeoutMs = 3000;
/* The private protocol of the device's kernel module. */
constexpr int kNetlinkUnicast = 30;

/* The sockets that one channel opens and keeps. */
struct Sockets {
    int32_t *normal;
    int32_t *high;
    int32_t *netlink;    /* null: the flag for it is ignored */
    bool makesDirectory; /* the other channels are opened after the main one */
};

constinit const Sockets kMainSockets{&g_vosFdProc, &g_vosFdProcHigh, &g_vosFdNLUni, true};
constinit const Sockets kSecondSockets{&g_vosFdProc_thread, &g_vosFdProcHigh_thread, nullptr, false};

/* Both sockets are created before the first bind. Plain descriptors, because leaking is required here: when the high
 * socket cannot be created, the normal one stays open. The process is expected to end then. */
int32_t createPair(Caller me, const char *name, int &normal, int &high) {
    normal = vosMsgLocalSocket(kTimeoutMs);
    if (normal < 0) return vos::failed(me, VOS_ERROR, "%s:local socket failed.");
    vos::trace(me, "%s:create %s socket %d.", vos::outside(name), normal);
    high = vosMsgLocalSocket(kTimeoutMs);
    if (high < 0) return vos::failed(me, VOS_ERROR, "%s:local high socket failed.");
    vos::trace(me, "%s:create %s high socket %d.", vos::outside(name), high);
    return VOS_OK;
}

struct BindTexts {
    vos::LogText<int32_t, int, const char *> failed;
    vos::LogText<int32_t> done;
};
constexpr BindTexts kNormalTexts{"%s:local bind iSocketFd %d failed errno:%d(%s).", "%s:local socket %d success."};
constexpr BindTexts kHighTexts{"%s:local bind high  iSocketFd %d failed errno:%d(%s).",
                               "%s:local high socket %d success."};

/* Binds a socket, sets its buffer sizes and stores it. One that cannot be bound is closed. */
int32_t establish(Caller me, UniqueFd fd, const vos::Path &path, const BindTexts &texts, int32_t *owner) {
    if (!vos::bindTo(fd.get(), path.get())) return vos::failedErrno(me, VOS_ERROR, texts.failed, fd.get());
    vosMsgSocketOptmize(fd.get(), 1);
    vos::storeOwnSocket(owner, fd.release(), path.view());
    vos::trace(me, texts.done, *owner);
    return VOS_OK;
}

/* The lines of both channels show the names of the main channel's globals: the texts are fixed. */
int32_t openPair(Caller me, const Sockets &sockets, const char *name) {
    if (*sockets.normal != -1) return vos::failed(me, VOS_ERR_EXIST, "%s:g_vosFdProc %d exist.", *sockets.normal);
    if (*sockets.high != -1) return vos::failed(me, VOS_ERR_EXIST, "%s:g_vosFdProcHigh %d exist.", *sockets.high);
    int normal = -1;
    int high = -1;
    if (createPair(me, name, normal, high) != VOS_OK) return VOS_ERROR;
    if (sockets.makesDirectory) mkdir("/tmp/vos", 0777);
    if (establish(me, UniqueFd{normal}, vos::normalPath(name), kNormalTexts, sockets.normal) != VOS_OK)
        return VOS_ERROR; /* the high socket stays open, its number is not stored: this leak is required, too */
    return establish(me, UniqueFd{high}, vos::highPath(name), kHighTexts, sockets.high);
}

int32_t openNetlink(Caller me, int32_t *owner) {
    if (*owner != -1) return vos::failed(me, VOS_ERR_EXIST, "%s:g_vosFdNLUni %d exist.", *owner);
    UniqueFd fd{socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, kNetlinkUnicast)};
    if (!fd) return vos::failed(me, VOS_ERROR, "%s:netlink unicast socket failed.");
    vos::trace(me, "%s:create netlink unicast socket %d.", fd.get());
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_pid = static_cast<uint32_t>(getpid());
    if (bind(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) < 0)
        return vos::failedErrno(me, VOS_ERROR, "%s:netlink unicast bind failed errno:%d(%s).");
    vos::vosMsgNetlinkSocketOptmize(fd.get(), 1);
    vos::storeOwnSocket(owner, fd.release(), {});
    vos::trace(me, "%s:netlink unicast socket %d success.", *owner);
    return VOS_OK;
}

int32_t openChannel(Caller me, const Sockets &sockets, const char *name, uint32_t flags, const void *reserved) {
    vos::trace(me, "%s:start.");
    if (name == nullptr || reserved == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    int32_t result = VOS_OK;
    if ((flags & VOS_MSG_OPEN_LOCAL) != 0) result = openPair(me, sockets, name);
    if (result == VOS_OK && sockets.netlink != nullptr && (flags & VOS_MSG_OPEN_NETLINK) != 0)
        result = openNetlink(me, sockets.netlink);
    return result == VOS_OK ? vos::ended(me, VOS_OK) : result;
}

}  // namespace

int32_t vosMsgInit(const char *pProcName, uint32_t ulFlags, void *pReserved) {
    const Caller me;
    return openChannel(me, kMainSockets, pProcName, ulFlags, pReserved);
}

int32_t vosMsgInit2(const char *pProcName, uint32_t ulFlags, void *pReserved) {
    const Caller me;
    return openChannel(me, kSecondSockets, pProcName, ulFlags, pReserved);
}

int32_t vosMsgThreadInit(const char *pProcName, int32_t iNumber, int32_t *pSocketFd, uint32_t ulHigh) {
    const Caller me;
    vos::trace(me, "%s:start.");
    if (pProcName == nullptr || pSocketFd == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    UniqueFd fd{vosMsgLocalSocket(kTimeoutMs)};
    if (!fd) return vos::failed(me, VOS_ERROR, "%s:local socket failed.");
    vos::trace(me, "%s:create %s socket %d.", vos::outside(pProcName), fd.get());
    vos::Path path = vos::threadPath(pProcName, iNumber);
    if (ulHigh == 1) path.append("High");
    return establish(me, std::move(fd), path, kNormalTexts, pSocketFd);
}
