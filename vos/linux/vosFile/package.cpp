/* SPDX-License-Identifier: MIT */
/* File packages: files, directories and OEM records, applied one after the other. */
#include <sys/stat.h>

#include <algorithm>
#include <string_view>

#include "../base/errnoKeeper.h"
#include "../base/log.h"
#include "../base/wire.h"
#include "image.h"
#include "vosFile.h"

namespace {

using Bytes = std::span<const uint8_t>;

/* The permitted prefixes. A path that begins with one is permitted, also "/app/oemx" and a path that leaves the
 * directory with "..": packages in use depend on it. */
constexpr std::string_view kPermitted = "/app/preZEB.sh;/app/oem";

constexpr std::size_t kPackageHeader = 16; /* behind the image header: magic, payload length, entries, unused */
constexpr std::size_t kEntryHeader = 32;
constexpr uint32_t kFile = 0;
constexpr uint32_t kDirectory = 1;
constexpr uint32_t kOemInformation = 2;

struct Entry {
    uint32_t operation;
    uint32_t kind;
    uint32_t mode;
    Bytes name; /* with its NUL, if it has one */
    Bytes data;

    [[nodiscard]] bool adds() const { return operation == 0; }
    [[nodiscard]] const char *verb() const { return adds() ? "add" : "delete"; }
    [[nodiscard]] bool hasPath() const { return !name.empty() && name.back() == '\0'; }
    [[nodiscard]] const char *path() const { return reinterpret_cast<const char *>(name.data()); }
};

int32_t readEntry(vos::WordReader &in, Entry &entry) {
    const auto header = in.bytes(kEntryHeader);
    if (!header) return VOS_ERROR;
    vos::WordReader words{*header};
    if (*words.networkWord() != VOS_PACKAGE_MAGIC) return VOS_ERR_PACKAGE_MAGIC;
    entry.operation = *words.networkWord();
    entry.kind = *words.networkWord();
    const uint32_t nameLength = *words.networkWord();
    const uint32_t dataLength = *words.networkWord();
    entry.mode = *words.networkWord();
    const auto name = in.bytes(nameLength);
    if (!name) return VOS_ERROR;
    const auto data = in.bytes(dataLength);
    if (!data) return VOS_ERROR;
    entry.name = *name;
    entry.data = *data;
    return VOS_OK;
}

bool begins(std::string_view path, std::string_view prefix) {
    return path.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), path.begin());
}

bool permitted(std::string_view path) {
    for (std::string_view list = kPermitted; !list.empty();) {
        const std::string_view prefix{list.data(), std::min(list.find(';'), list.size())};
        if (prefix.size() < 2) return false;
        if (begins(path, prefix)) return true;
        list.remove_prefix(std::min(prefix.size() + 1, list.size()));
    }
    return false;
}

int32_t addFile(const Entry &entry) {
    return vosFileWrite_m(entry.path(), entry.data.data(), static_cast<uint32_t>(entry.data.size()), entry.mode);
}

/* A file is removed before it is added, so that it gets the entry's permissions and not those it had. */
int32_t applyFile(vos::Caller me, const Entry &entry) {
    if (!entry.hasPath()) return VOS_ERROR;
    if (!permitted(entry.path()))
        return vos::failed(me, VOS_ERROR, "%s:file %s is not permitted.", vos::outside(entry.path()));
    vosFileDelete(entry.path());
    errno = 0;
    if (!entry.adds() || addFile(entry) == VOS_OK) return VOS_OK;
    return vos::failedErrno(me, VOS_ERROR, "%s:%s file %s failed errno:%d(%s).", entry.verb(),
                            vos::outside(entry.path()));
}

/* A directory that exists already is a success, so the result of mkdir() is not examined. */
int32_t addDirectory(const Entry &entry) {
    mkdir(entry.path(), entry.mode);
    return VOS_OK;
}

bool missing(const char *path) {
    const vos::ErrnoKeeper keep;
    struct stat state;
    return lstat(path, &state) != 0 && errno == ENOENT;
}

int32_t deleteDirectory(const Entry &entry) {
    if (vosDirDelete(entry.path()) == VOS_OK || missing(entry.path())) return VOS_OK;
    return VOS_ERROR;
}

int32_t applyDirectory(vos::Caller me, const Entry &entry) {
    if (!entry.hasPath() || !permitted(entry.path())) return VOS_ERROR;
    errno = 0;
    if ((entry.adds() ? addDirectory(entry) : deleteDirectory(entry)) == VOS_OK) return VOS_OK;
    return vos::failedErrno(me, VOS_ERROR, "%s:%s dir %s failed errno:%d(%s).", entry.verb(),
                            vos::outside(entry.path()));
}

int32_t applyOem(vos::Caller me, const Entry &entry) {
    if (vos::vosFileImageOemWrite(entry.data) == VOS_OK) return VOS_OK;
    return vos::failed(me, VOS_ERROR, "%s:oem write failed.");
}

int32_t apply(vos::Caller me, const Entry &entry) {
    switch (entry.kind) {
        case kFile:
            return applyFile(me, entry);
        case kDirectory:
            return applyDirectory(me, entry);
        case kOemInformation:
            return applyOem(me, entry);
        default:
            return VOS_ERR_ENTRY_KIND;
    }
}

/* Reads the package header, and the number of entries from it. */
int32_t readPackageHeader(vos::WordReader &in, uint32_t &entries) {
    const auto header = in.bytes(kPackageHeader);
    if (!header) return VOS_ERROR;
    vos::WordReader words{*header};
    if (*words.networkWord() != VOS_PACKAGE_MAGIC) return VOS_ERR_PACKAGE_MAGIC;
    if (*words.networkWord() != in.left()) return VOS_ERR_PACKAGE_LENGTH;
    entries = *words.networkWord();
    return VOS_OK;
}

}  // namespace

namespace vos {

bool isPackage(Bytes image) {
    WordReader in{image};
    const auto type = in.networkWord();
    return type == kPackageImage && in.bytes(kImageHeader - sizeof(uint32_t)) && in.networkWord() == VOS_PACKAGE_MAGIC;
}

int32_t vosFileImageFileOp(Bytes package) {
    const Caller me;
    const auto length = static_cast<uint32_t>(package.size());
    trace(me, "%s:start ulBufLen %u.", length);
    const int32_t checked = vosFileImageCheck(kPackageImage, package.data(), length);
    if (checked != VOS_OK) return checked;
    WordReader in{package.subspan(kImageHeader)};
    uint32_t entries = 0;
    if (const int32_t result = readPackageHeader(in, entries); result != VOS_OK) return result;
    for (; entries > 0; --entries) {
        Entry entry{};
        if (const int32_t result = readEntry(in, entry); result != VOS_OK) return result;
        if (const int32_t result = apply(me, entry); result != VOS_OK) return result;
    }
    return VOS_OK;
}

}  // namespace vos
