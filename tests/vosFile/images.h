/* SPDX-License-Identifier: MIT */
/* Images and file packages that the tests make. */
#ifndef TESTS_VOS_FILE_IMAGES_H
#define TESTS_VOS_FILE_IMAGES_H

#include <string>

#include "vos.h"
#include "vosFile/flash.h"

namespace vostest {

inline const char *const kApplication = "/app/hostImage.bin";
inline const char *const kVersion = "/app/hostImage.bin.ver";
inline const char *const kBackup = "/flash/hostImage.bin.last";
inline const char *const kBackupVersion = "/flash/hostImage.bin.last.ver";
inline const std::string kCompatible = networkWord(0xA0A1A2A3) + networkWord(0xB0B1B2B3);

/* CRC-32 by its definition, bit by bit. */
inline uint32_t imageCrc(const std::string &payload) {
    uint32_t crc = 0xFFFFFFFF;
    for (const char c : payload) {
        crc ^= static_cast<uint8_t>(c);
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320u : 0);
    }
    return ~crc;
}

inline std::string imageHeader(uint32_t type, const std::string &payload, const std::string &compatible = kCompatible) {
    return networkWord(type) + compatible + networkWord(imageCrc(payload));
}
inline std::string applicationImage(const std::string &payload) { return imageHeader(2, payload) + payload; }
inline std::string bootImage(const std::string &payload) { return payload + imageHeader(1, payload); }

inline const std::string kMagic = networkWord(0x53355335);

inline std::string packageOf(uint32_t entries, const std::string &bytes) {
    const std::string payload = kMagic + networkWord(size32(bytes)) + networkWord(entries) + "    " + bytes;
    return imageHeader(3, payload) + payload;
}

struct EntryFields {
    uint32_t operation = 0;
    uint32_t kind = 0;
    std::string name{};  // with its NUL
    std::string data{};
    uint32_t mode = 0644;
};
inline std::string entryOf(const EntryFields &entry) {
    return kMagic + networkWord(entry.operation) + networkWord(entry.kind) + networkWord(size32(entry.name)) +
           networkWord(size32(entry.data)) + networkWord(entry.mode) + std::string(8, '\0') + entry.name + entry.data;
}

inline std::string named(const std::string &path) { return path + '\0'; }

inline std::string oemRecord(uint32_t field, const std::string &value) {
    return kMagic + networkWord(field) + networkWord(size32(value)) + value;
}

inline void putApplication(const std::string &payload = "installed") {
    putFile(kApplication, applicationImage(payload));
}

inline int32_t check(uint32_t type, const std::string &image) {
    return vosFileImageCheck(type, raw(image), size32(image));
}
inline int32_t installApplication(const std::string &image) { return vosFileAppWrite(raw(image), size32(image)); }
inline int32_t installBoot(const std::string &image) { return vosFileBootWrite(raw(image), size32(image)); }

}  // namespace vostest

#endif
