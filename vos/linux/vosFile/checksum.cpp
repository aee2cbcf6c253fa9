/* SPDX-License-Identifier: MIT */
/* The two checksums on flash: CRC-32 guards images, CRC-16 in a 32-bit register guards the data partitions. */
#include <array>
#include <span>

#include "vosFile.h"

namespace {

using Table = std::array<uint32_t, 256>;

consteval Table reflectedCrc32() {
    Table table{};
    for (uint32_t i = 0; i < table.size(); ++i) {
        uint32_t crc = i;
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320u : 0);
        table[i] = crc;
    }
    return table;
}

consteval Table crc16() {
    Table table{};
    for (uint32_t i = 0; i < table.size(); ++i) {
        uint32_t crc = i << 8;
        for (int bit = 0; bit < 8; ++bit) crc = (crc << 1) ^ ((crc & 0x8000) != 0 ? 0x1021u : 0);
        table[i] = crc & 0xFFFF;
    }
    return table;
}

constexpr Table kCrc32 = reflectedCrc32();
constexpr Table kCrc16 = crc16();

constexpr uint32_t updateCrc32(std::span<const uint32_t, 256> table, uint32_t crc, std::span<const uint8_t> bytes) {
    for (const uint8_t byte : bytes) crc = table[(crc ^ byte) & 0xFF] ^ (crc >> 8);
    return crc;
}

/* The register is never cut down to 16 bits: its upper half holds what earlier steps have shifted out. All 32 bits are
 * stored in the partitions, so a mask here would make every partition in use invalid. */
constexpr uint32_t checksum(std::span<const uint8_t> bytes) {
    uint32_t crc = 0;
    for (const uint8_t byte : bytes) crc = (crc << 8) ^ kCrc16[byte ^ ((crc >> 8) & 0xFF)];
    return crc;
}

constexpr uint8_t kKnown[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
static_assert(kCrc32[0] == 0 && kCrc32[1] == 0x77073096u && kCrc32[128] == 0xEDB88320u && kCrc32[255] == 0x2D02EF8Du);
static_assert(~updateCrc32(kCrc32, 0xFFFFFFFFu, kKnown) == 0xCBF43926u);
static_assert(kCrc16[1] == 0x1021u && kCrc16[2] == 0x2042u && kCrc16[3] == 0x3063u && kCrc16[255] == 0x1EF0u);
static_assert(checksum(kKnown) == 0x869031C3u);

}  // namespace

/* An array can only be filled from a list. */
#define CRC_4(i)  kCrc32[i], kCrc32[(i) + 1], kCrc32[(i) + 2], kCrc32[(i) + 3]
#define CRC_16(i) CRC_4(i), CRC_4((i) + 4), CRC_4((i) + 8), CRC_4((i) + 12)
#define CRC_64(i) CRC_16(i), CRC_16((i) + 16), CRC_16((i) + 32), CRC_16((i) + 48)
constinit uint32_t vosCrctable[256] = {CRC_64(0), CRC_64(64), CRC_64(128), CRC_64(192)};

uint32_t vosFileCrc32(uint32_t ulCrc, const uint8_t *pBuf, uint32_t ulLen) {
    if (pBuf == nullptr) return ulCrc;
    return updateCrc32(vosCrctable, ulCrc, {pBuf, ulLen});
}

uint32_t Cal_CRC(const uint8_t *pBuf, uint32_t ulLen) { return pBuf != nullptr ? checksum({pBuf, ulLen}) : 0; }
