/* SPDX-License-Identifier: MIT */
/* System V shared memory named by a file. */
#include <sys/ipc.h>
#include <sys/shm.h>

#include "../base/log.h"
#include "vosDebug.h"

namespace {

constexpr int kOptionReadOnly = 1;
constexpr int kOptionCreate = 2;

/* The read-write case grants group write and not owner write: that is how segments in use have been created, and the
 * device's processes, which run with full privileges, are not stopped by it. */
constexpr int kModeReadOnly = 0400;
constexpr int kModeReadWrite = 0420;

}  // namespace

void *vosMemoryShareGet(const char *pPath, uint8_t ucProject, uint32_t ulSize, int32_t iOptions) {
    const vos::Caller me;
    const bool readOnly = (iOptions & kOptionReadOnly) != 0;
    if (pPath == nullptr) {
        vos::error(me, "%s:parameter error.");
        return nullptr;
    }
    const key_t key = ftok(pPath, ucProject);
    if (key == -1) {
        vos::errorErrno(me, "%s:ftok failed errno:%d(%s).");
        return nullptr;
    }
    const int create = (iOptions & kOptionCreate) != 0 ? IPC_CREAT : 0;
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
