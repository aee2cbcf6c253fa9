/* SPDX-License-Identifier: MIT */
/* Partitions that the tests of device data make. */
#ifndef TESTS_VOS_SYS_CONFIG_PARTITIONS_H
#define TESTS_VOS_SYS_CONFIG_PARTITIONS_H

#include <string>
#include <vector>

#include "vos.h"
#include "vosFile/flash.h"

namespace vostest {

/* What a test needs to know about a partition. */
struct Partition {
    const char *path;
    uint32_t bodySize;
    std::string word;    // "factory" or "system", as its texts say
    std::string blanks;  // before "failed" and "need" in the texts of its writer
    std::string init, reader, writer;
    int32_t item;  // one item of 4 bytes in it
    [[nodiscard]] uint32_t size() const { return 128 + bodySize; }
    [[nodiscard]] std::string data(const std::string &function, const std::string &call) const {
        return function + ":" + call + " " + word + " data";
    }
};

inline void PrintTo(const Partition &partition, std::ostream *to) { *to << partition.word; }

inline const Partition kFactory{
    "/app/factory",        1272,          "factory", " ", "bootConfigDataInit", "readBootConfigData",
    "writeBootConfigData", BSP_OEM_NUMBER};
inline const Partition kSystem{"/flash/sysdata",    856,         "system", "  ", "flashAppDataInit", "readFlashAppData",
                               "writeFlashAppData", BSP_BANDRATE};
inline const std::vector<Partition> kPartitions{kFactory, kSystem};

/* The checksum of a body, computed from its description and not by the library. */
inline uint32_t bodyChecksum(const std::string &body) {
    uint32_t r = 0;
    for (const char c : body) {
        uint32_t entry = ((static_cast<uint8_t>(c) ^ (r >> 8)) & 0xFF) << 8;
        for (int bit = 0; bit < 8; ++bit) entry = ((entry << 1) ^ ((entry & 0x8000) != 0 ? 0x1021 : 0)) & 0xFFFF;
        r = (r << 8) ^ entry;
    }
    return r;
}

inline std::string partitionOf(const std::string &body, uint32_t checksum) {
    return nativeWord(size32(body)) + nativeWord(0x26869816) + nativeWord(checksum) + std::string(8, '\0') +
           std::string(44, '\xFF') + std::string(64, '\0') + body;
}
inline std::string partitionOf(const std::string &body) { return partitionOf(body, bodyChecksum(body)); }

inline std::string erasedBody(const Partition &partition) { return std::string(partition.bodySize, '\xFF'); }

inline void putErased() {
    for (const Partition &each : kPartitions) putFile(each.path, partitionOf(erasedBody(each)));
}

inline std::string bodyOf(const Partition &partition) {
    return fileContent(partition.path).substr(128, partition.bodySize);
}

inline int32_t getWord(int32_t item, uint32_t &value) { return vosSysConfigDataGet(item, &value, sizeof value); }
inline int32_t setWord(int32_t item, uint32_t value) { return vosSysConfigDataSet(item, &value, sizeof value); }

/* The lines of a Get or Set that fails at its partition. */
inline std::vector<std::string> withExit(const std::string &caller, const std::string &line,
                                         const std::string &failed) {
    std::vector<std::string> lines;
    if (!line.empty()) lines.push_back(line);
    lines.push_back(caller + ":" + failed + " failed.");
    lines.push_back(caller + ":error exit.");
    return lines;
}

}  // namespace vostest

#endif
