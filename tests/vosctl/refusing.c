/* SPDX-License-Identifier: MIT */
/* Loaded before the library: the check of an image answers with the code in REFUSAL. */
#include <stdlib.h>
#include <vosFile.h>

int32_t vosFileImageCheck(uint32_t ulType, const uint8_t *pBuf, uint32_t ulBufLen) {
    (void)ulType, (void)pBuf, (void)ulBufLen;
    const char *const code = getenv("REFUSAL");
    return code != NULL ? (int32_t)strtol(code, NULL, 10) : VOS_ERROR;
}
