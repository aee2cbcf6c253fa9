/* SPDX-License-Identifier: MIT */
/* Single files: existence, removal, size. */
#include "../base/file.h"

#include <sys/stat.h>

#include <cstdio>

#include "../base/log.h"
#include "vosFile.h"

int32_t vosFileExist(const char *pPath) {
    const vos::Caller me;
    return vos::ended(me, vos::exists(pPath) ? 1 : 0);
}

int32_t vosFileDelete(const char *pPath) {
    const vos::Caller me;
    if (pPath == nullptr)
        vos::error(me, "%s:parameter error.");
    else if (remove(pPath) != 0 && errno != ENOENT)
        vos::errorErrno(me, "%s:remove file %s failed errno:%d(%s).", vos::outside(pPath));
    return vos::ended(me, VOS_OK);
}

int32_t vosFileSizeGet(const char *pPath, uint32_t *pSize) {
    const vos::Caller me;
    vos::trace(me, "%s:start name %s.", vos::outside(pPath));
    if (pSize == nullptr) return vos::failed(me, VOS_ERROR, "%s:parameter error.");
    *pSize = 0;
    struct stat state;
    if (!vos::named(pPath) || stat(pPath, &state) != 0) return VOS_ERROR;
    *pSize = static_cast<uint32_t>(state.st_size);
    return VOS_OK;
}

int32_t vosFileSize(const char *pPath) {
    FILE *const stream = vos::named(pPath) ? fopen(pPath, "re") : nullptr;
    if (stream == nullptr) return VOS_ERROR;
    const long size = fseek(stream, 0, SEEK_END) == 0 ? ftell(stream) : -1;
    fclose(stream);
    return static_cast<int32_t>(size);
}
