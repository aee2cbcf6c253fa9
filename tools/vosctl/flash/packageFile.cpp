/* SPDX-License-Identifier: MIT */
#include "packageFile.h"

#include <vosFile.h>

#include <algorithm>
#include <iterator>

#include "store.h"

namespace vosctl {

namespace {

constexpr std::size_t kPackageBytes = 16;
constexpr std::size_t kEntryBytes = 32;
constexpr std::size_t kRecordBytes = 12;

PackageEntry takeEntry(std::string_view &rest, const std::string &where) {
    if (rest.size() < kEntryBytes || networkWord(rest, 0) != VOS_PACKAGE_MAGIC)
        throw FaultyPackage(VOS_ERR_PACKAGE_MAGIC, where + " does not begin with the magic word");
    const uint64_t name = networkWord(rest, 12);
    const uint64_t data = networkWord(rest, 16);
    if (kEntryBytes + name + data > rest.size()) throw FaultyPackage(VOS_ERROR, where + " ends beyond the package");
    PackageEntry entry{networkWord(rest, 4) != 0, networkWord(rest, 8), networkWord(rest, 20),
                       std::string(rest.substr(kEntryBytes, name)), std::string(rest.substr(kEntryBytes + name, data))};
    if (entry.kind < kOemEntry && (name == 0 || entry.path.back() != '\0'))
        throw FaultyPackage(VOS_ERROR, where + " has no path");
    entry.path.erase(std::min(entry.path.find('\0'), entry.path.size()));
    rest.remove_prefix(kEntryBytes + name + data);
    return entry;
}

/* The device reads at most as many records as there are fields, and nothing may follow them. */
bool takeRecords(std::string_view rest, std::vector<OemRecord> &records) {
    if (rest.size() < kRecordBytes) return false;
    while (!rest.empty()) {
        if (records.size() == kOemFields.size() || rest.size() < kRecordBytes) return false;
        const uint32_t field = networkWord(rest, 4);
        const uint32_t length = networkWord(rest, 8);
        if (networkWord(rest, 0) != VOS_PACKAGE_MAGIC || field >= kOemFields.size()) return false;
        if (length > kOemFields[field].size || length > rest.size() - kRecordBytes) return false;
        records.push_back({field, std::string(rest.substr(kRecordBytes, length))});
        rest.remove_prefix(kRecordBytes + length);
    }
    return true;
}

}  // namespace

std::vector<PackageEntry> packageEntriesOf(std::string_view payload, const std::string &file) {
    if (payload.size() < kPackageBytes || networkWord(payload, 0) != VOS_PACKAGE_MAGIC)
        throw FaultyPackage(VOS_ERR_PACKAGE_MAGIC, file + " holds no package: its magic word is missing");
    if (networkWord(payload, 4) != payload.size() - kPackageBytes)
        throw FaultyPackage(VOS_ERR_PACKAGE_LENGTH, file + " is not as long as the package's length word says");
    std::vector<PackageEntry> entries;
    std::string_view rest = payload.substr(kPackageBytes);
    const uint32_t count = networkWord(payload, 8);
    for (uint32_t index = 1; index <= count; ++index)
        entries.push_back(takeEntry(rest, "entry " + std::to_string(index) + " of " + file));
    return entries;
}

void requireApplicable(const std::vector<PackageEntry> &entries, const std::string &file) {
    for (std::size_t index = 0; index < entries.size(); ++index) {
        const PackageEntry &entry = entries[index];
        const std::string where = entryName(entries, index, file);
        if (entry.kind > kOemEntry)
            throw FaultyPackage(VOS_ERR_ENTRY_KIND,
                                where + " is of a kind that the device does not know: " + std::to_string(entry.kind));
        if (entry.kind != kOemEntry && !packagePathPermitted(entry.path))
            throw FaultyPackage(VOS_ERROR, where + " has a path that the device refuses");
        if (entry.kind == kOemEntry && oemRecordsOf(entry).empty())
            throw FaultyPackage(VOS_ERROR, where + " has OEM records that the device refuses");
    }
}

std::string packagePayload(const std::vector<PackageEntry> &entries) {
    std::string body;
    for (const PackageEntry &entry : entries) {
        const std::string name = entry.kind == kOemEntry ? std::string() : entry.path + '\0';
        body += networkBytes(VOS_PACKAGE_MAGIC) + networkBytes(entry.remove ? 1 : 0) + networkBytes(entry.kind) +
                networkBytes(lengthOf(name)) + networkBytes(lengthOf(entry.data)) + networkBytes(entry.mode) +
                std::string(8, '\0') + name + entry.data;
    }
    return networkBytes(VOS_PACKAGE_MAGIC) + networkBytes(lengthOf(body)) +
           networkBytes(static_cast<uint32_t>(entries.size())) + networkBytes(0) + body;
}

std::vector<OemRecord> oemRecordsOf(const PackageEntry &entry) {
    std::vector<OemRecord> records;
    if (!takeRecords(entry.data, records)) records.clear();
    return records;
}

std::string oemRecordBytes(const OemRecord &record) {
    return networkBytes(VOS_PACKAGE_MAGIC) + networkBytes(record.field) + networkBytes(lengthOf(record.value)) +
           record.value;
}

const char *entryKindName(uint32_t kind) {
    constexpr const char *kNames[] = {"file", "directory", "oem", "unknown"};
    return kNames[kind <= kOemEntry ? kind : 3];
}

std::string entryName(const std::vector<PackageEntry> &entries, std::size_t index, const std::string &file) {
    const std::string &path = entries[index].path;
    return "entry " + std::to_string(index + 1) + " of " + file + (path.empty() ? "" : " (" + path + ")");
}

bool packagePathPermitted(const std::string &path) {
    return path.starts_with("/app/preZEB.sh") || path.starts_with("/app/oem");
}

bool climbs(const std::string &path) { return ("/" + path + "/").find("/../") != std::string::npos; }

}  // namespace vosctl
