/* SPDX-License-Identifier: MIT */
/* File packages: their entries, and what the device does with them. */
#ifndef VOSCTL_PACKAGE_FILE_H
#define VOSCTL_PACKAGE_FILE_H

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "../base/failure.h"

namespace vosctl {

constexpr uint32_t kFileEntry = 0;
constexpr uint32_t kDirectoryEntry = 1;
constexpr uint32_t kOemEntry = 2;

struct PackageEntry {
    bool remove = false;
    uint32_t kind = kFileEntry;
    uint32_t mode = 0;
    std::string path;
    std::string data;
};

/* Where the values of the OEM fields are in BSP_OEM_INFO, and how long they may be. */
struct OemField {
    std::size_t offset;
    std::size_t size;
};
inline constexpr std::array<OemField, 9> kOemFields{
    {{16, 128}, {144, 32}, {176, 32}, {208, 128}, {336, 64}, {400, 64}, {464, 128}, {592, 64}, {656, 128}}};

struct OemRecord {
    uint32_t field = 0;
    std::string value;
};

/* A package that passes the library's check, but that the library would refuse while it applies it. */
class FaultyPackage : public Failure {
  public:
    FaultyPackage(int32_t code, const std::string &what) : Failure(what, "make the package again"), code_(code) {}
    [[nodiscard]] int32_t code() const noexcept { return code_; } /* the result code of that refusal */

  private:
    int32_t code_;
};

/* The entries in the package's order. Throws a FaultyPackage when a magic word or a length is wrong. */
std::vector<PackageEntry> packageEntriesOf(std::string_view payload, const std::string &file);

/* Throws a FaultyPackage that names the first entry whose kind, path or records the device would refuse. */
void requireApplicable(const std::vector<PackageEntry> &entries, const std::string &file);

std::string packagePayload(const std::vector<PackageEntry> &entries);

/* The records of an entry, nothing for bytes that the device would refuse. */
std::vector<OemRecord> oemRecordsOf(const PackageEntry &entry);
std::string oemRecordBytes(const OemRecord &record);

/* "file", "directory", "oem" or "unknown". */
const char *entryKindName(uint32_t kind);

/* "entry 2 of FILE (/app/oem/a)", counted from 1 */
std::string entryName(const std::vector<PackageEntry> &entries, std::size_t index, const std::string &file);

/* Whether the library permits packages to change a path. It compares only the beginning of the path. */
bool packagePathPermitted(const std::string &path);

/* Whether a path has a part "..", so that it can lead out of the directories that packages may change. */
bool climbs(const std::string &path);

}  // namespace vosctl

#endif
