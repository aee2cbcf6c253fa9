/* SPDX-License-Identifier: MIT */
/* Single files: existence, removal, size. */
#include "../base/file.h"

#include <sys/stat.h>

#include <cstdio>

#include "../base/log.h"
#include "image.h"
#include "store.h"
#include "vosFile.h"

int32_t vosFileExist(const char *pPath) {
    const vos::Caller me;
    return vos::ended(me, vos::exists(pPath) ? 1 : 0);
}

int32_t vosFileDelete(const char *pPath) {
    const vos::Caller me;
    if (pPath == nullptr)
        vos::error(me, "%s:parameter error.");
    else if (remove(pPath) == 0 || errno == ENOENT)
        vos::forgetSave(me, pPath);
    else
        vos::errorErrno(me, "%s:remove file %s failed errno:%d(%s).", vos::outside(pPath));
    return vos::ended(me, VOS_OK);
}

namespace vos {

std::optional<uint64_t> vosFileSizeGet(const char *path) {
    const Caller me;
    trace(me, "%s:start name %s.", outside(path));
    struct stat state;
    if (!named(path) || settle(me, path) != VOS_OK || stat(path, &state) != 0) return std::nullopt;
    return static_cast<uint64_t>(state.st_size);
}

}  // namespace vos

int32_t vosFileSizeGet(const char *pPath, uint32_t *pSize) {
    const vos::Caller me;
    const auto size = vos::vosFileSizeGet(pPath);
    if (pSize == nullptr) return vos::failed(me, VOS_ERROR, "%s:parameter error.");
    *pSize = static_cast<uint32_t>(size.value_or(0));
    return size ? VOS_OK : VOS_ERROR;
}

int32_t vosFileSize(const char *pPath) {
    const vos::Caller me;
    FILE *const stream = vos::named(pPath) && vos::settle(me, pPath) == VOS_OK ? fopen(pPath, "re") : nullptr;
    if (stream == nullptr) return VOS_ERROR;
    const long size = fseek(stream, 0, SEEK_END) == 0 ? ftell(stream) : -1;
    fclose(stream);
    return static_cast<int32_t>(size);
}
