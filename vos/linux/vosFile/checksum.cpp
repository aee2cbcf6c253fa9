/* SPDX-License-Identifier: MIT */
/* The checksum of the data partitions, a CRC-16 in a 32-bit register. */
#include <array>
#include <span>

#include "vosFile.h"

namespace {

using Table = std::array<uint32_t, 256>;

consteval Table crc16() {
    Table table{};
    for (uint32_t i = 0; i < table.size(); ++i) {
        uint32_t crc = i << 8;
        for (int bit = 0; bit < 8; ++bit) crc = (crc << 1) ^ ((crc & 0x8000) != 0 ? 0x1021u : 0);
        table[i] = crc & 0xFFFF;
    }
    return table;
}

constexpr Table kCrc16 = crc16();

/* The register is never cut down to 16 bits: its upper half holds what earlier steps have shifted out. All 32 bits are
 * stored in the partitions, so a mask here would make every partition in use invalid. */
constexpr uint32_t checksum(std::span<const uint8_t> bytes) {
    uint32_t crc = 0;
    for (const uint8_t byte : bytes) crc = (crc << 8) ^ kCrc16[byte ^ ((crc >> 8) & 0xFF)];
    return crc;
}

constexpr uint8_t kKnown[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
static_assert(kCrc16[1] == 0x1021u && kCrc16[2] == 0x2042u && kCrc16[3] == 0x3063u && kCrc16[255] == 0x1EF0u);
static_assert(checksum(kKnown) == 0x869031C3u);

}  // namespace

uint32_t Cal_CRC(const uint8_t *pBuf, uint32_t ulLen) { return pBuf != nullptr ? checksum({pBuf, ulLen}) : 0; }
