/* SPDX-License-Identifier: MIT */
/* System V shared memory named by a file. */
#include <sys/ipc.h>
#include <sys/shm.h>

#include "../base/log.h"
#include "vosDebug.h"

namespace {

/* The read-write mode has group write and no owner write: existing segments were created with it. The device's
 * processes run with full privileges, so the mode does not stop them. */
constexpr int kModeReadOnly = 0400;
constexpr int kModeReadWrite = 0420;

}  // namespace

void *vosMemoryShareGet(const char *pPath, uint8_t ucProject, uint32_t ulSize, int32_t iOptions) {
    const vos::Caller me;
    const bool readOnly = (iOptions & VOS_SHARE_READ_ONLY) != 0;
    if (pPath == nullptr) {
        vos::error(me, "%s:parameter error.");
        return nullptr;
    }
    const key_t key = ftok(pPath, ucProject);
    if (key == -1) {
        vos::errorErrno(me, "%s:ftok failed errno:%d(%s).");
        return nullptr;
    }
    const int create = (iOptions & VOS_SHARE_CREATE) != 0 ? IPC_CREAT : 0;
    const int segment = shmget(key, ulSize, create | (readOnly ? kModeReadOnly : kModeReadWrite));
    if (segment == -1) {
        vos::errorErrno(me, "%s:shmget failed errno:%d(%s).");
        return nullptr;
    }
    void *const address = shmat(segment, nullptr, readOnly ? SHM_RDONLY : 0);
    if (reinterpret_cast<intptr_t>(address) == -1) {
        vos::errorErrno(me, "%s:shmat failed errno:%d(%s).");
        return nullptr;
    }
    return address;
}
