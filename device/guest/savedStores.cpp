/* SPDX-License-Identifier: MIT */
#include "savedStores.h"

#include <fcntl.h>
#include <unistd.h>
#include <vos.h>

#include <algorithm>

namespace cuts {

namespace {

constexpr uint32_t kLongest = 1 << 16;
constexpr std::size_t kUserSize = 476, kOemSize = 1024;
constexpr const char *kData = "/flash/data", *kVersion = "/app/hostImage.bin.ver";

uint32_t size(const std::string &bytes) { return static_cast<uint32_t>(bytes.size()); }

std::string readAny(const char *path) {
    std::string bytes(kLongest, '\0');
    const int32_t count = vosFileRead(path, bytes.data(), kLongest);
    if (count < 0) return count == VOS_ERR_NO_FILE ? kMissing : kFailed;
    return bytes.substr(0, static_cast<std::size_t>(count));
}

bool saveConfiguration(const std::string &bytes) { return vosFileCfgWrite(bytes.data(), size(bytes)) == VOS_OK; }
std::string readConfiguration() {
    char *buffer = nullptr;
    uint32_t length = 0;
    const int32_t result = vosFileCfgRead(&buffer, &length);
    if (result != VOS_OK) return result == VOS_ERR_NO_FILE ? kMissing : kFailed;
    std::string bytes(buffer, length);
    vosFileCfgFree(buffer);
    return bytes;
}

bool saveSyslog(const std::string &bytes) {
    return vosFileSyslogWrite(bytes.data(), size(bytes)) == static_cast<int32_t>(bytes.size());
}
std::string readSyslog() {
    std::string bytes(kLongest, '\0');
    const int32_t count = vosFileSyslogRead(bytes.data(), kLongest);
    if (count < 0) return count == VOS_ERR_NO_FILE ? kMissing : kFailed;
    return bytes.substr(0, static_cast<std::size_t>(count));
}

bool saveData(const std::string &bytes) { return vosFileWrite(kData, bytes.data(), size(bytes)) == VOS_OK; }
std::string readData() { return readAny(kData); }

bool saveVersion(const std::string &bytes) { return vosFileAppVerUpdate(bytes.c_str()) == VOS_OK; }
std::string readVersion() {
    std::string bytes = readAny(kVersion);
    if (!bytes.empty() && bytes.back() == '\0') bytes.pop_back();
    return bytes;
}

std::string readItem(int32_t item, std::size_t length) {
    std::string bytes(length, '\0');
    return vosSysConfigDataGet(item, bytes.data(), size(bytes)) == VOS_OK ? bytes : kFailed;
}
bool saveUser(const std::string &bytes) { return vosSysConfigDataSet(BSP_USER, bytes.data(), size(bytes)) == VOS_OK; }
std::string readUser() { return readItem(BSP_USER, kUserSize); }
bool saveOem(const std::string &bytes) {
    return vosSysConfigDataSet(BSP_OEM_INFO, bytes.data(), size(bytes)) == VOS_OK;
}
std::string readOem() { return readItem(BSP_OEM_INFO, kOemSize); }

constexpr SavedStore kStores[] = {
    {"configuration", "/flash/zebcfg", 0, false, 1, kLongest, saveConfiguration, readConfiguration},
    {"syslog", "/flash/syslog", 0, false, 1, kLongest, saveSyslog, readSyslog},
    {"file", kData, 0, false, 1, kLongest, saveData, readData},
    {"new file", kData, 0, true, 1, kLongest, saveData, readData},
    {"version", kVersion, 1, false, 1, 32, saveVersion, readVersion},
    {"system", "/flash/sysdata", 0, false, kUserSize, kUserSize, saveUser, readUser},
    {"factory", "/app/factory", 1, false, kOemSize, kOemSize, saveOem, readOem},
};

}  // namespace

std::span<const SavedStore> savedStores() { return kStores; }

std::string contentOf(const SavedStore &store, unsigned generation, std::size_t size) {
    uint64_t state =
        0x9E3779B97F4A7C15u * (uint64_t{generation} * std::size(kStores) + static_cast<uint64_t>(&store - kStores) + 1);
    std::string bytes(std::clamp(size, store.least, store.most), '\0');
    for (char &each : bytes) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        each = static_cast<char>(1 + (state >> 32) % 254); /* neither the end of a text nor erased flash */
    }
    return bytes;
}

bool readFile(const std::string &path, std::string &bytes) {
    bytes.clear();
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return false;
    char part[8192];
    for (ssize_t count = 0; (count = read(file, part, sizeof part)) > 0;)
        bytes.append(part, static_cast<std::size_t>(count));
    close(file);
    return true;
}

}  // namespace cuts
