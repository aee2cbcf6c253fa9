/* SPDX-License-Identifier: MIT */
/* Removal of whole trees. */
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string_view>

#include "../base/block.h"
#include "../base/errnoKeeper.h"
#include "../base/log.h"
#include "store.h"
#include "vosFile.h"

namespace {

struct CloseDirectory {
    void operator()(DIR *directory) const {
        const vos::ErrnoKeeper keep;
        closedir(directory);
    }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

bool isChild(std::string_view entry) { return entry != "." && entry != ".."; }

vos::Block childPath(std::string_view directory, std::string_view entry) {
    const std::size_t size = directory.size() + 1 + entry.size() + 1;
    vos::Block path = vos::allocate(static_cast<uint32_t>(size));
    if (path != nullptr)
        snprintf(reinterpret_cast<char *>(path.get()), size, "%s%s%s", directory.data(),
                 directory.ends_with('/') ? "" : "/", entry.data());
    return path;
}

int32_t deleteChild(vos::Caller me, const char *directory, const char *entry) {
    const vos::Block block = childPath(directory, entry);
    if (block == nullptr)
        return vos::failedErrno(me, VOS_ERROR, "%s:asprintf dir %s and sub dir %s failed errno:%d(%s).",
                                vos::outside(directory), vos::outside(entry));
    const auto *const child = reinterpret_cast<const char *>(block.get());
    if (vosDirDelete(child) == VOS_OK) return VOS_OK;
    return vos::failedErrno(me, VOS_ERROR, "%s:vosDirDelete dir %s and sub dir %s failed errno:%d(%s).",
                            vos::outside(directory), vos::outside(child));
}

int32_t deleteChildren(vos::Caller me, const char *path) {
    const Directory directory{opendir(path)};
    if (directory == nullptr)
        return vos::failedErrno(me, VOS_ERROR, "%s:opendir dir %s failed errno:%d(%s).", vos::outside(path));
    while (const dirent *const entry = readdir(directory.get()))
        if (isChild(entry->d_name) && deleteChild(me, path, entry->d_name) != VOS_OK) return VOS_ERROR;
    return VOS_OK;
}

}  // namespace

/* Every single removal is followed by a sync of the whole system, because the power can fail at any moment; large trees
 * are slow therefore. The recursion is as deep as the tree. The longest path and the limit of open descriptors bound
 * it. */
int32_t vosDirDelete(const char *pPath) {
    const vos::Caller me;
    if (pPath == nullptr) return VOS_ERROR;
    struct stat state;
    if (lstat(pPath, &state) != 0) {
        if (errno != ENOENT) vos::errorErrno(me, "%s:lstat file %s failed errno:%d(%s).", vos::outside(pPath));
        return VOS_ERROR;
    }
    if (!S_ISDIR(state.st_mode)) {
        if (unlink(pPath) != 0)
            return vos::failedErrno(me, VOS_ERROR, "%s:unlink file %s failed errno:%d(%s).", vos::outside(pPath));
        vos::forgetSave(me, pPath);
    } else {
        if (deleteChildren(me, pPath) != VOS_OK) return VOS_ERROR;
        if (rmdir(pPath) != 0)
            return vos::failedErrno(me, VOS_ERROR, "%s:rmdir dir %s failed errno:%d(%s).", vos::outside(pPath));
    }
    sync();
    return VOS_OK;
}
