/* SPDX-License-Identifier: MIT */
/* The calling thread's error number, and its text. The text comes from the portable form of strerror_r, which always
 * writes into the caller's buffer; the C library offers it to programs that do not ask for its extensions. */
#undef _GNU_SOURCE
#define _POSIX_C_SOURCE 200809L
#include <errno.h>
#include <string.h>

#include "vosSys.h"

int32_t errnoSet(int32_t iErrno) {
    errno = iErrno;
    return VOS_OK;
}

int32_t errnoGet(void) { return errno; }

char *vosErrnoToStr(int32_t iErrno, char *pBuf, int32_t iLen) {
    if (pBuf == nullptr || iLen <= 0) return pBuf;
    pBuf[0] = '\0';
    /* The result is not needed: an unknown number has a text, too, and a text that is too long is cut. */
    [[maybe_unused]] const int outcome = strerror_r(iErrno, pBuf, static_cast<size_t>(iLen));
    return pBuf;
}
