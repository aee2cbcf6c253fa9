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

/* A package that the library's check lets pass, and that it would give up while it applies it. */
class FaultyPackage : public Failure {
  public:
    FaultyPackage(int32_t code, const std::string &what) : Failure(what, "make the package again"), code_(code) {}
    [[nodiscard]] int32_t code() const noexcept { return code_; } /* with which the library would */

  private:
    int32_t code_;
};

/* The entries as they are in the package. Throws a FaultyPackage when they cannot be told apart. */
std::vector<PackageEntry> packageEntriesOf(std::string_view payload, const std::string &file);

/* Throws a FaultyPackage that names the first entry that the device would refuse: its kind, its path or its records. */
void requireApplicable(const std::vector<PackageEntry> &entries, const std::string &file);

std::string packagePayload(const std::vector<PackageEntry> &entries);

/* The records of an entry, nothing for bytes that the device would refuse. */
std::vector<OemRecord> oemRecordsOf(const PackageEntry &entry);
std::string oemRecordBytes(const OemRecord &record);

/* "file", "directory", "oem" or "unknown". */
const char *entryKindName(uint32_t kind);

/* "entry 2 of FILE (/app/oem/a)", counted from 1 */
std::string entryName(const std::vector<PackageEntry> &entries, std::size_t index, const std::string &file);

/* Whether the library lets packages touch a path. It compares the begin of the path only. */
bool packagePathPermitted(const std::string &path);

/* Whether a path has a part "..", by which it can lead out of the directories that packages may touch. */
bool climbs(const std::string &path);

}  // namespace vosctl

#endif
