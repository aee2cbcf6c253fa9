/* SPDX-License-Identifier: MIT */
/* The network namespaces of VRFs: a thread enters one and returns to its own. */
#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include "../base/errnoKeeper.h"
#include "../base/log.h"
#include "../base/text.h"
#include "../base/uniqueFd.h"
#include "vosSys.h"

namespace {

constexpr uint32_t kDefaultVrf = 0;

using Path = vos::Text<256>;

vos::UniqueFd openNamespace(const char *path) { return vos::UniqueFd{open(path, O_RDONLY | O_CLOEXEC)}; }

/* "self" is the process's main thread. Any other thread may be in another namespace, and must return to that one. */
const char *ownNamespace() { return gettid() == getpid() ? "/proc/self/ns/net" : "/proc/thread-self/ns/net"; }

/* The names of the namespaces are made with the signed number. */
Path namespaceOf(uint32_t vrf) {
    Path path;
    path.append("/var/run/netns/").append("ns").appendDecimal(static_cast<int32_t>(vrf));
    return path;
}

int32_t enter(vos::Caller me, int fd) {
    if (setns(fd, CLONE_NEWNET) == 0) return VOS_OK;
    const vos::ErrnoKeeper keep;
    vosPrintf("\r\n%s:setns %d failed errno %d errstr %s.", me.name, fd, errno, strerror(errno));
    return VOS_ERROR;
}

}  // namespace

int32_t vosSwitchToNetVrf(uint32_t ulVrf, int32_t *pSavedFd) {
    const vos::Caller me;
    if (pSavedFd == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    *pSavedFd = -1;
    if (ulVrf == kDefaultVrf) return VOS_ERR_PARAM;

    vos::UniqueFd own = openNamespace(ownNamespace());
    if (!own) {
        const vos::ErrnoKeeper keep;
        vosPrintf("\r\n%s:open self netns failed errno %d errstr %s.", me.name, errno, strerror(errno));
        return VOS_ERROR;
    }
    const Path path = namespaceOf(ulVrf);
    const vos::UniqueFd vrf = openNamespace(path.get());
    if (!vrf) {
        const vos::ErrnoKeeper keep;
        vosPrintf("\r\n%s:open netns %s failed errno %d errstr %s.", me.name, path.get(), errno, strerror(errno));
        return VOS_ERROR;
    }
    if (enter(me, vrf.get()) != VOS_OK) return VOS_ERROR;
    *pSavedFd = own.release(); /* the caller returns by it */
    return VOS_OK;
}

int32_t vosNetVrfRestore(int32_t iSavedFd) {
    const vos::Caller me;
    if (iSavedFd < 0) return VOS_OK;                     /* the thread was not moved */
    if (enter(me, iSavedFd) != VOS_OK) return VOS_ERROR; /* the descriptor stays, so that the caller may try again */
    if (close(iSavedFd) == 0) return VOS_OK;
    const vos::ErrnoKeeper keep;
    vosPrintf("\r\n%s:close %d failed errno %d errstr %s.", me.name, iSavedFd, errno, strerror(errno));
    return VOS_ERROR;
}
