/* SPDX-License-Identifier: MIT */
/* Installing the application and the boot loader. */
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <optional>

#include "../base/file.h"
#include "../base/journalImage.h"
#include "../base/log.h"
#include "../base/text.h"
#include "image.h"
#include "vosFile.h"

constinit const char *szBootLoaderFileName = "/dev/mtdblock0";

namespace {

using Bytes = std::span<const uint8_t>;

constexpr const char *kBackup = "/flash/hostImage.bin.last";
constexpr const char *kBackupVersion = "/flash/hostImage.bin.last.ver";
constexpr std::size_t kVersionSize = 512;

constexpr std::size_t kLongestAppPath = 252;
using VersionPath = vos::Text<kLongestAppPath + sizeof ".ver">;

/* The path of the application's version file. None when the application's path is null or too long. */
std::optional<VersionPath> versionPath() {
    const char *const path = szAppFileName;
    if (!vos::named(path) || strlen(path) > kLongestAppPath) return std::nullopt;
    return VersionPath{}.append(path).append(".ver");
}

/* Keeps the installed application as the backup, if it has a version file. A failure is logged and does not stop the
 * installation. */
void backUp(vos::Caller me) {
    const auto version = versionPath();
    if (!version || !vos::exists(version->get())) return;
    if (vosFileCopy(szAppFileName, kBackup) != VOS_OK)
        vos::error(me, "%s:failed to backup application.");
    else if (vosFileCopy(version->get(), kBackupVersion) != VOS_OK)
        vos::error(me, "%s:failed to backup application version.");
    else
        vosFileDelete(version->get());
}

/* With the journal: records what is going to be installed, before anything is changed. The image has its header at its
 * start or at its end. */
void record(vos::Caller me, const char *path, Bytes image, Bytes header,
            std::optional<vos::journal::ImageMark> (*old)(const char *path)) {
    const vos::journal::Target target{me, szVosJournalDir, path};
    if (!target.on()) return;
    vos::journal::ImageMark mark{static_cast<uint32_t>(image.size()), {}};
    std::ranges::copy(header, mark.header.data());
    vos::journal::recordImage(target, mark, old != nullptr ? old(path) : std::nullopt);
}

/* Where an image is written. The boot loader's device has a fixed size, so it is neither created nor truncated; it is
 * closed without fsync. The log texts say "app file" for both. */
struct Target {
    const char *const *path;
    int flags;
    bool flushed;
};
constexpr Target kApplication{&szAppFileName, O_RDWR | O_CREAT | O_TRUNC | O_SYNC, true};
constexpr Target kBootLoader{&szBootLoaderFileName, O_RDWR, false};

/* Unlike a save of a file, a short write of an image is a failure. */
int32_t writeImage(vos::Caller me, const vos::UniqueFd &file, Bytes image) {
    const auto wanted = static_cast<uint32_t>(image.size());
    const auto count = static_cast<int32_t>(write(file.get(), image.data(), image.size()));
    if (count < 0) return vos::failedErrno(me, VOS_ERROR, "%s:write app file failed errno:%d(%s).");
    if (static_cast<uint32_t>(count) < wanted)
        return vos::failed(me, VOS_ERROR, "%s:write app file need %u but only write %d.", wanted, count);
    return VOS_OK;
}

int32_t install(vos::Caller me, const Target &target, Bytes image) {
    vos::UniqueFd file = vos::openFile(*target.path, target.flags);
    if (!file) return vos::failedErrno(me, VOS_ERROR, "%s:open app file failed errno:%d(%s).");
    if (flock(file.get(), LOCK_EX) != 0) vos::errorErrno(me, "%s:lock app file failed errno:%d(%s).");
    const int32_t result = writeImage(me, file, image);
    if (flock(file.get(), LOCK_UN) != 0) vos::errorErrno(me, "%s:unlock app file failed errno:%d(%s).");
    if (target.flushed) {
        fsync(file.get());
        syncfs(file.get());
    }
    file.reset();
    return vos::ended(me, result);
}

}  // namespace

int32_t vosFileAppWrite(const uint8_t *pBuf, uint32_t ulBufLen) {
    const vos::Caller me;
    vos::trace(me, "%s:start ulBufLen %u.", ulBufLen);
    if (pBuf == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    if (vos::isPackage({pBuf, ulBufLen})) return vos::vosFileImageFileOp({pBuf, ulBufLen});
    const int32_t checked = vosFileImageCheck(vos::kApplicationImage, pBuf, ulBufLen);
    if (checked != VOS_OK) return checked;
    const Bytes image{pBuf, ulBufLen};
    record(me, szAppFileName, image, image.first(vos::kImageHeader), vos::journal::imageAt);
    backUp(me);
    return install(me, kApplication, image);
}

int32_t vosFileAppVerUpdate(const char *pVersion) {
    const vos::Caller me;
    if (pVersion == nullptr || *pVersion == '\0') return VOS_ERR_PARAM;
    const auto path = versionPath();
    if (!path) return vos::failed(me, VOS_ERROR, "%s:file name is too long.");
    return vosFileWrite(path->get(), pVersion, static_cast<uint32_t>(strlen(pVersion) + 1));
}

int32_t vosFileAppBackupVerGet(int32_t *pBackupExist, char *pVersion) {
    const vos::Caller me;
    if (pVersion == nullptr) return VOS_ERROR;
    if (pBackupExist == nullptr) return vos::failed(me, VOS_ERROR, "%s:parameter error.");
    memset(pVersion, 0, kVersionSize + 1);
    *pBackupExist = vos::exists(kBackup) ? 1 : 0;
    vosFileRead(kBackupVersion, pVersion, kVersionSize);
    return VOS_OK;
}

int32_t vosFileBootWrite(const uint8_t *pBuf, uint32_t ulBufLen) {
    const vos::Caller me;
    vos::trace(me, "%s:start ulBufLen %u.", ulBufLen);
    if (pBuf == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    const int32_t checked = vosFileImageCheck(vos::kBootImage, pBuf, ulBufLen);
    if (checked != VOS_OK) return checked;
    const Bytes image{pBuf, ulBufLen};
    record(me, szBootLoaderFileName, image, image.last(vos::kImageHeader), nullptr);
    return install(me, kBootLoader, image);
}
