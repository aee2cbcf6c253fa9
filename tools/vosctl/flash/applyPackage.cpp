/* SPDX-License-Identifier: MIT */
#include "applyPackage.h"

#include <sys/stat.h>
#include <vosFile.h>
#include <vosSysConfig.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "../base/interrupts.h"
#include "../terminal/report.h"
#include "deviceFile.h"
#include "store.h"

namespace vosctl {

namespace {

bool exists(const std::string &path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0;
}

bool isDirectory(const std::string &path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/* The OEM information block; empty when the factory partition is not valid. */
std::string oemBlock() {
    requireRegularFile(szFactoryData);
    std::string block(1024, '\0');
    return vosSysConfigDataGet(BSP_OEM_INFO, block.data(), lengthOf(block)) == VOS_OK ? block : std::string();
}

/* When two records have the same field, the last one counts. */
bool holdsRecords(const PackageEntry &entry) {
    const std::string block = oemBlock();
    std::string values[kOemFields.size()];
    for (const OemRecord &record : oemRecordsOf(entry)) values[record.field] = record.value;
    for (std::size_t field = 0; field < kOemFields.size(); ++field)
        if (block.substr(std::min(block.size(), kOemFields[field].offset), values[field].size()) != values[field])
            return false;
    return !block.empty();
}

/* The library reports neither a directory that it could not make nor a file that was written only in part. */
bool arrived(const PackageEntry &entry, const DeviceFile *file) {
    if (entry.kind == kOemEntry) return holdsRecords(entry);
    if (entry.remove) return !exists(entry.path);
    return entry.kind == kDirectoryEntry ? isDirectory(entry.path) : file->holds(entry.data);
}

/* Applies one entry. Returns why that was not possible; empty after a success. */
std::string applyEntry(const ImageHeader &header, const PackageEntry &entry) {
    std::optional<DeviceFile> file;
    if (entry.kind == kFileEntry) file.emplace(entry.path);
    const std::string image = makeImage(kPackage, header.compatA, header.compatB, packagePayload({entry}));
    errno = 0;
    const int32_t code = vosFileAppWrite(bytesOf(image), lengthOf(image));
    const int error = errno;
    if (code == VOS_OK && arrived(entry, file ? &*file : nullptr)) return "";
    std::string why = error != 0 ? strerror(error) : "the device did not do it (code " + std::to_string(code) + ")";
    if (file && !file->putBack()) why += ", and the file that was there is lost";
    return why;
}

}  // namespace

void requireRoomForPackage(const std::vector<PackageEntry> &entries) {
    std::vector<Need> needs;
    for (const PackageEntry &entry : entries) {
        if (entry.kind == kFileEntry) needs.push_back({entry.path, entry.remove ? 0 : entry.data.size()});
        if (entry.kind == kOemEntry && oemBlock().empty()) {
            throw Failure(std::string("the package has OEM records, and the factory partition ") + szFactoryData +
                              ", which is to hold them, is not valid; nothing was changed",
                          "see \"vosctl partition check factory\"");
        }
    }
    requireRoomFor(needs);
}

namespace {

/* Reports how many entries were applied before the failure. */
[[noreturn]] void stoppedAt(const std::vector<PackageEntry> &entries, std::size_t index, const std::string &file,
                            const std::string &why) {
    throw Failure(file + " was not applied to its end: " + entryName(entries, index, file) + ": " + why + "; " +
                      std::to_string(index) + " of " + std::to_string(entries.size()) + " entries were applied",
                  "correct that, and apply the package again; the applied entries may be applied twice");
}

}  // namespace

void applyPackage(const ImageHeader &header, const std::vector<PackageEntry> &entries, const std::string &file) {
    const HeldSignals held{printable(file) + " was being applied"};
    for (std::size_t index = 0; index < entries.size(); ++index) {
        std::string why;
        try {
            why = applyEntry(header, entries[index]);
        } catch (const Failure &failure) {
            why = failure.what();
        }
        if (!why.empty()) stoppedAt(entries, index, file, why);
    }
}

}  // namespace vosctl
