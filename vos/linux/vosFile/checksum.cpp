/* SPDX-License-Identifier: MIT */
/* The checksum of the data partitions, a CRC-16 in a 32-bit register. */
#include <array>
#include <span>

#include "vosFile.h"

namespace {

/* Entry b of slice n: the effect of byte b with n bytes after it, on 16 bits. */
using Slices = std::array<std::array<uint16_t, 256>, 8>;

consteval Slices slices() {
    Slices all{};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t crc = byte << 8;
        for (auto &slice : all) {
            for (int bit = 0; bit < 8; ++bit) crc = (crc << 1) ^ ((crc & 0x8000) != 0 ? 0x1021u : 0);
            slice[byte] = static_cast<uint16_t>(crc);
        }
    }
    return all;
}

constexpr Slices kSlices = slices();

constexpr uint32_t oneByte(uint32_t crc, uint8_t byte) { return (crc << 8) ^ kSlices[0][byte ^ ((crc >> 8) & 0xFF)]; }

/* The low half of the register after eight single steps. No look-up needs the result of another one. */
constexpr uint32_t eightBytes(uint32_t crc, const uint8_t *bytes) {
    const auto effect = [bytes](std::size_t i, uint32_t crcByte) { return kSlices[7 - i][bytes[i] ^ crcByte]; };
    const int rest = effect(2, 0) ^ effect(3, 0) ^ effect(4, 0) ^ effect(5, 0) ^ effect(6, 0) ^ effect(7, 0);
    return static_cast<uint32_t>(rest ^ effect(0, (crc >> 8) & 0xFF) ^ effect(1, crc & 0xFF));
}

/* The register is not cut to 16 bits: its upper half holds the bits that earlier steps have shifted out. All 32 bits
 * are stored in the partitions, so a mask here would make every partition in use invalid. The last two steps set the
 * whole upper half, so they are made as single steps. */
constexpr uint32_t checksum(std::span<const uint8_t> bytes) {
    uint32_t crc = 0;
    for (; bytes.size() >= 8 + 2; bytes = bytes.subspan(8)) crc = eightBytes(crc, bytes.data());
    for (const uint8_t byte : bytes) crc = oneByte(crc, byte);
    return crc;
}

constexpr uint8_t kKnown[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
constexpr uint8_t kKnownTwice[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9',
                                   '1', '2', '3', '4', '5', '6', '7', '8', '9'};
static_assert(kSlices[0][1] == 0x1021u && kSlices[0][2] == 0x2042u && kSlices[0][3] == 0x3063u &&
              kSlices[0][255] == 0x1EF0u);
static_assert(checksum(kKnown) == 0x869031C3u && checksum(kKnownTwice) == 0x173FEDC6u);

}  // namespace

uint32_t Cal_CRC(const uint8_t *pBuf, uint32_t ulLen) { return pBuf != nullptr ? checksum({pBuf, ulLen}) : 0; }
