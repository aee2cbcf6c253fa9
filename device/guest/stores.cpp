/* SPDX-License-Identifier: MIT */
#include "stores.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vos.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "report.h"

namespace stores {

std::size_t contentSize = 3000;

namespace {

constexpr const char *kBackup = "/flash/hostImage.bin.last";
constexpr uint32_t kBootLoaderType = 1;
constexpr uint32_t kApplicationType = 2;
constexpr uint32_t kPackageType = 3;
constexpr uint32_t kPackageMagic = 0x53355335;
constexpr std::size_t kOemFieldSize = 128;
/* A package writes one field of the OEM block. A Set writes another one, near the end of the partition. */
constexpr uint32_t kPackageField = 6;
constexpr std::size_t kPackageFieldAt = 464;
constexpr std::size_t kItemFieldAt = 656;

/* Bytes that cannot be compressed, never 0x00 or 0xFF, different for every store and generation. */
std::string noise(Store store, unsigned generation, std::size_t size) {
    uint64_t state = 0x9E3779B97F4A7C15u * (uint64_t{generation} * kStores + store + 1);
    std::string bytes(size, '\0');
    for (char &each : bytes) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        each = static_cast<char>(1 + (state >> 32) % 254);
    }
    return bytes;
}

const uint8_t *data(const std::string &bytes) { return reinterpret_cast<const uint8_t *>(bytes.data()); }
uint32_t size(const std::string &bytes) { return static_cast<uint32_t>(bytes.size()); }

std::string words(std::initializer_list<uint32_t> values) {
    std::string bytes;
    for (const uint32_t value : values) {
        const uint32_t wire = htonl(value);
        bytes.append(reinterpret_cast<const char *>(&wire), sizeof wire);
    }
    return bytes;
}

std::string image(uint32_t type, const std::string &payload) {
    const std::string header = words({type, 7, 1, ~vosFileCrc32(0xFFFFFFFF, data(payload), size(payload))});
    return type == kBootLoaderType ? payload + header : header + payload;
}

std::string nativeWord(uint32_t value) { return {reinterpret_cast<const char *>(&value), sizeof value}; }

std::string partition(const std::string &body, char unused) {
    return nativeWord(size(body)) + nativeWord(VOS_PARTITION_MAGIC) + nativeWord(Cal_CRC(data(body), size(body))) +
           std::string(8, '\0') + std::string(44, unused) + std::string(64, '\0') + body;
}

std::string configuration(const Generations &now) { return noise(kConfiguration, now[kConfiguration], contentSize); }
std::string syslog(const Generations &now) { return noise(kSyslog, now[kSyslog], contentSize); }
std::string user(const Generations &now) { return noise(kSystem, now[kSystem], 476); }
std::string packageField(const Generations &now) { return noise(kPackage, now[kPackage], kOemFieldSize); }

std::string oemBlock(const Generations &now) {
    std::string block(1024, '\xFF');
    block.replace(0, 8, std::string("devinfo\0", 8));
    block.replace(kPackageFieldAt, kOemFieldSize, packageField(now));
    return block.replace(kItemFieldAt, kOemFieldSize, noise(kFactory, now[kFactory], kOemFieldSize));
}

std::string system(const Generations &now) {
    return partition(std::string(856, '\xFF').replace(72, 476, user(now)), '\xFF');
}

std::string factory(const Generations &now) {
    std::string body(1272, '\xFF');
    body.replace(12, 4, nativeWord(1));
    body.replace(16, 32, noise(kFactory, 0, 32));
    return partition(body.replace(48, 1024, oemBlock(now)), '\0');
}

std::string applicationOf(unsigned generation) {
    return image(kApplicationType, noise(kApplication, generation, contentSize));
}
std::string versionOf(unsigned generation) {
    std::string text = std::to_string(generation);
    return text.insert(0, 8 - text.size(), '0') + '\0';
}
std::string application(const Generations &now) { return applicationOf(now[kApplication]); }
std::string version(const Generations &now) { return versionOf(now[kApplication]); }
std::string backup(const Generations &now) { return applicationOf(now[kApplication] - 1); }
std::string backupVersion(const Generations &now) { return versionOf(now[kApplication] - 1); }

std::string feature(const Generations &now) { return noise(kPackage, now[kPackage], contentSize); }
std::string bootLoader(const Generations &now) {
    return image(kBootLoaderType, noise(kBootLoader, now[kBootLoader], contentSize));
}

constexpr Object kObjects[] = {
    {"configuration", "/flash/zebcfg", configuration, "ONTE", "ON"},
    {"syslog", "/flash/syslog", syslog, "ONTE", "ON"},
    {"system partition", "/flash/sysdata", system, "ONT", "ON"},
    {"factory partition", "/app/factory", factory, "ONT", "ON"},
    {"application", "/app/hostImage.bin", application, "ONTE", "ONTE"},
    {"application's version", "/app/hostImage.bin.ver", version, "ONEL", "ONL"},
    {"backup", kBackup, backup, "ONTEL", "ONTEL"},
    {"backup's version", "/flash/hostImage.bin.last.ver", backupVersion, "ONEL", "ONEL"},
    {"file of a package", "/app/oem/feature", feature, "ONTEL", "ONL"},
    {"boot loader", nullptr, bootLoader, "ONT", "ONT"},
};

std::string entry(uint32_t kind, const std::string &name, const std::string &content) {
    return words({kPackageMagic, 0, kind, size(name), size(content), 0644, 0, 0}) + name + content;
}

std::string package(const Generations &now) {
    const std::string value = packageField(now);
    const std::string entries = entry(0, std::string("/app/oem/feature") + '\0', feature(now)) +
                                entry(2, "", words({kPackageMagic, kPackageField, size(value)}) + value);
    return image(kPackageType, words({kPackageMagic, size(entries), 2, 0}) + entries);
}

int32_t installApplication(const Generations &now) {
    const std::string bytes = application(now);
    if (const int32_t result = vosFileAppWrite(data(bytes), size(bytes)); result != VOS_OK) return result;
    return saveVersion(now);
}

int32_t setItem(int32_t item, const std::string &value) { return vosSysConfigDataSet(item, value.data(), size(value)); }

void writeFile(const char *path, const std::string &bytes) {
    expect(vosFileWrite(path, bytes.data(), size(bytes)) == VOS_OK, "%s cannot be written", path);
}

}  // namespace

const char *nameOf(Store store) {
    static constexpr const char *kNames[] = {"configuration", "syslog",  "system",     "factory",
                                             "application",   "package", "boot loader"};
    return kNames[store];
}

Store storeOf(std::string_view name) {
    unsigned store = 0;
    while (store < kStores && name != nameOf(Store{store})) ++store;
    return Store{store};
}

const char *nameOf(Found found) {
    static constexpr const char *kNames[] = {"old", "new", "torn", "empty", "lost", "foreign"};
    return kNames[static_cast<unsigned>(found)];
}

std::span<const Object> objects() { return kObjects; }

void makeAll(const Generations &generations) {
    mkdir("/app/oem", 0755);
    for (const Object &object : kObjects)
        if (object.path != nullptr) writeFile(object.path, object.content(generations));
    expect(save(kBootLoader, generations) == VOS_OK, "the boot loader cannot be written");
}

int32_t saveVersion(const Generations &now) { return vosFileAppVerUpdate(version(now).c_str()); }

int32_t save(Store store, const Generations &now) {
    switch (store) {
        case kConfiguration: {
            const std::string bytes = configuration(now);
            return vosFileCfgWrite(bytes.data(), size(bytes));
        }
        case kSyslog: {
            const std::string bytes = syslog(now);
            const int32_t count = vosFileSyslogWrite(bytes.data(), size(bytes));
            return count == static_cast<int32_t>(bytes.size()) ? VOS_OK : count;
        }
        case kSystem:
            return setItem(BSP_USER, user(now));
        case kFactory:
            return setItem(BSP_OEM_INFO, oemBlock(now));
        case kApplication:
            return installApplication(now);
        case kPackage: {
            const std::string bytes = package(now);
            return vosFileAppWrite(data(bytes), size(bytes));
        }
        case kBootLoader: {
            const std::string bytes = bootLoader(now);
            return vosFileBootWrite(data(bytes), size(bytes));
        }
        default:
            return VOS_ERR_PARAM;
    }
}

Bytes read(const Object &object, std::size_t most) {
    Bytes result;
    const int file = open(object.path != nullptr ? object.path : szBootLoaderFileName, O_RDONLY | O_CLOEXEC);
    if (file < 0) return result;
    result.there = true;
    result.bytes.resize(most);
    std::size_t length = 0;
    for (ssize_t count = 0; (count = ::read(file, &result.bytes[length], most - length)) > 0;)
        length += static_cast<std::size_t>(count);
    result.bytes.resize(length);
    close(file);
    return result;
}

Found classify(const Bytes &bytes, const std::string &before, const std::string &after, bool erasable) {
    const std::string &now = bytes.bytes;
    if (!bytes.there) return Found::Lost;
    if (now == after) return Found::New;
    if (now == before) return Found::Old;
    if (now.empty()) return Found::Empty;
    if (now.size() > std::max(before.size(), after.size())) return Found::Foreign;
    /* Content is never 0x00 or 0xFF: a zero is a hole of the file system, 0xFF is erased flash. */
    for (std::size_t at = 0; at < now.size(); ++at) {
        const bool old = at < before.size() && now[at] == before[at];
        const bool fresh = at < after.size() && now[at] == after[at];
        if (!old && !fresh && now[at] != '\0' && !(erasable && now[at] == '\xFF')) return Found::Foreign;
    }
    return Found::Torn;
}

}  // namespace stores
