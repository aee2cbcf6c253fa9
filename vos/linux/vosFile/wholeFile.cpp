/* SPDX-License-Identifier: MIT */
/* Any file as a whole: reading, replacing, copying. */
#include <unistd.h>

#include "../base/block.h"
#include "store.h"
#include "vosFile.h"

namespace {

constexpr uint32_t kCopyBuffer = 0x200000;

/* The result of a write is not examined: after a short write the next piece follows directly, so the copy can be cut
 * short and can also lack bytes in the middle. */
void copyBytes(const vos::UniqueFd &from, const vos::UniqueFd &to, uint8_t *buffer) {
    for (ssize_t count = 0; (count = read(from.get(), buffer, kCopyBuffer)) > 0;) {
        [[maybe_unused]] const ssize_t written = write(to.get(), buffer, static_cast<std::size_t>(count));
    }
}

vos::UniqueFd openLogged(vos::Caller me, const char *path, int flags) {
    vos::UniqueFd file = vos::openFile(path, flags);
    if (!file) vos::errorErrno(me, "%s:open file %s failed errno:%d(%s).", vos::outside(path));
    return file;
}

}  // namespace

int32_t vosFileRead(const char *pPath, void *pBuf, uint32_t ulBufLen) {
    const vos::Caller me;
    vos::trace(me, "%s:start name %s ulBufLen %u.", vos::outside(pPath), ulBufLen);
    if (pPath == nullptr || pBuf == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    if (const int32_t found = vos::findFile(me, vos::kAnyFile, pPath); found != VOS_OK) return found;
    return vos::readWhole(me, vos::kAnyFile, pPath, {static_cast<uint8_t *>(pBuf), ulBufLen});
}

int32_t vosFileWrite_m(const char *pPath, const void *pBuf, uint32_t ulBufLen, uint32_t ulMode) {
    const vos::Caller me;
    vos::trace(me, "%s:start name %s ulBufLen %u.", vos::outside(pPath), ulBufLen);
    if (pPath == nullptr || pBuf == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    return vos::replaceWhole(me, vos::kAnyFile, pPath, {static_cast<const uint8_t *>(pBuf), ulBufLen}, ulMode);
}

int32_t vosFileWrite(const char *pPath, const void *pBuf, uint32_t ulBufLen) {
    return vosFileWrite_m(pPath, pBuf, ulBufLen, vos::kFileMode);
}

int32_t vosFileCopy(const char *pSource, const char *pDestination) {
    const vos::Caller me;
    vos::trace(me, "%s:start name %s name2 %s.", vos::outside(pSource), vos::outside(pDestination));
    if (pSource == nullptr || pDestination == nullptr) return vos::failed(me, VOS_ERROR, "%s:parameter error.");
    if (const int32_t found = vos::findFile(me, vos::kAnyFile, pSource); found != VOS_OK) return found;
    if (vos::settle(me, pSource) != VOS_OK) return VOS_ERROR;
    const vos::Block buffer = vos::allocate(kCopyBuffer);
    if (buffer == nullptr) return vos::failed(me, VOS_ERR_MEMORY, "%s:vosMalloc failed.");
    const vos::UniqueFd from = openLogged(me, pSource, O_RDONLY);
    if (!from) return VOS_ERROR;
    vosFileDelete(pDestination);
    const vos::UniqueFd to = openLogged(me, pDestination, O_RDWR | O_CREAT | O_TRUNC);
    if (!to) return VOS_ERROR;
    copyBytes(from, to, buffer.get());
    fsync(to.get());
    syncfs(to.get());
    return VOS_OK;
}
