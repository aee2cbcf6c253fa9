/* SPDX-License-Identifier: MIT */
/* Pointing a descriptor at the null device and back. */
#include <unistd.h>

#include "../base/file.h"
#include "vosFile.h"

int32_t vosFileHandleToNull(int32_t iFd, int32_t *pSavedFd) {
    if (pSavedFd == nullptr) return VOS_ERR_PARAM;
    vos::UniqueFd null = vos::openFile("/dev/null", O_RDWR);
    if (!null) return VOS_ERROR;
    if (null.get() == iFd) { /* iFd was closed: the null device got its number. It is closed again. */
        errno = EBADF;
        return VOS_ERROR;
    }
    vos::UniqueFd saved{dup(iFd)};
    if (!saved || dup2(null.get(), iFd) < 0) {
        [[maybe_unused]] const int keptOpen = null.release(); /* kept open, as the header says */
        return VOS_ERROR;
    }
    *pSavedFd = saved.release();
    return VOS_OK;
}

int32_t vosFileHandleRestore(int32_t iFd, int32_t iSavedFd) {
    if (dup2(iSavedFd, iFd) < 0) return VOS_ERROR;
    close(iSavedFd);
    return VOS_OK;
}
