/* SPDX-License-Identifier: MIT */
/* The saved configuration: opaque bytes in one file. */
#include <sys/stat.h>

#include <cstdio>
#include <limits>

#include "../base/block.h"
#include "store.h"
#include "vosFile.h"

constinit const char *szVosCfgFileName = "/flash/zebcfg";

namespace {

constexpr uint32_t kSpareBytes = 128;
constexpr const char *kCoreDumpSettings = "/flash/core-file";

/* A file whose length does not fit into 32 bits counts as one that does not fit into memory. */
vos::Block allocateFor(off_t size) {
    constexpr off_t kLargest = std::numeric_limits<uint32_t>::max() - kSpareBytes;
    return size <= kLargest ? vos::allocate(static_cast<uint32_t>(size) + kSpareBytes) : nullptr;
}

}  // namespace

int32_t vosFileCfgRead(char **ppBuf, uint32_t *pLen) {
    const vos::Caller me;
    vos::trace(me, "%s:start.");
    if (ppBuf == nullptr || pLen == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    *ppBuf = nullptr;
    *pLen = 0;
    const char *const path = szVosCfgFileName;
    if (const int32_t found = vos::findFile(me, vos::kConfigurationFile, path); found != VOS_OK) return found;
    const vos::SteadyFile steady{me, path}; /* with the journal the size below is that of a whole configuration */
    if (!steady) return VOS_ERROR;
    struct stat state;
    if (stat(path, &state) != 0) return vos::failedErrno(me, VOS_ERROR, "%s:stat cfg file failed errno:%d(%s).");
    vos::Block buffer = allocateFor(state.st_size);
    if (buffer == nullptr) return vos::failed(me, VOS_ERR_MEMORY, "%s:malloc failed.");
    const auto size = static_cast<uint32_t>(state.st_size);
    const int32_t count = vos::readWhole(me, vos::kConfigurationFile, path, {buffer.get(), size}, &steady);
    if (count < 0) return VOS_ERROR;
    /* The length is the one asked before the lock. If the file has shrunk since, the rest is zeros, and never old heap
     * content. */
    memset(&buffer[static_cast<uint32_t>(count)], 0, size - static_cast<uint32_t>(count));
    *ppBuf = reinterpret_cast<char *>(buffer.release());
    *pLen = size;
    return VOS_OK;
}

int32_t vosFileCfgFree(char *pBuf) {
    const vos::Caller me;
    vosFree(pBuf);
    return vos::ended(me, VOS_OK);
}

int32_t vosFileCfgWrite(const char *pBuf, uint32_t ulBufLen) {
    const vos::Caller me;
    vos::trace(me, "%s:start ulBufLen %u.", ulBufLen);
    if (pBuf == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    return vos::replaceWhole(me, vos::kConfigurationFile, szVosCfgFileName,
                             {reinterpret_cast<const uint8_t *>(pBuf), ulBufLen});
}

int32_t vosFileCfgDelete(void) {
    const vos::Caller me;
    const char *const path = szVosCfgFileName;
    if ((!vos::named(path) || remove(path) != 0) && errno != ENOENT)
        vos::errorErrno(me, "%s:remove cfg file failed errno:%d(%s).");
    else
        vos::forgetSave(me, path);
    remove(kCoreDumpSettings);
    return vos::ended(me, VOS_OK);
}

int32_t vosFileCfgExist(void) {
    const vos::Caller me;
    return vos::ended(me, vos::exists(szVosCfgFileName) ? 1 : 0);
}
