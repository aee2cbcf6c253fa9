/* SPDX-License-Identifier: MIT */
/* The CRC-32: byte by byte over any table, and, for the standard table, eight bytes at a time or by the processor. */
#ifndef VOS_BASE_CRC32_H
#define VOS_BASE_CRC32_H

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <span>

namespace vos::crc32 {

using Bytes = std::span<const uint8_t>;
using Table = std::array<uint32_t, 256>;

/* A register is a polynomial over GF(2) modulo the polynomial of the CRC: bit 31 is the coefficient of x^0, bit 0 that
 * of x^31. A zero bit of input multiplies it by x. */
inline constexpr uint32_t kOne = 0x80000000;

constexpr uint32_t timesX(uint32_t a) { return (a >> 1) ^ (0xEDB88320 & -(a & 1)); }

/* Without a branch, which would be mispredicted half the time. */
constexpr uint32_t product(uint32_t a, uint32_t b) {
    uint32_t sum = 0;
    for (int power = 0; power < 32; ++power) {
        sum ^= b & -(a >> 31);
        a <<= 1;
        b = timesX(b);
    }
    return sum;
}

/* x to the n-th. */
constexpr uint32_t power(uint64_t n) {
    uint32_t result = kOne;
    for (uint32_t square = timesX(kOne); n != 0; n >>= 1) {
        if ((n & 1) != 0) result = product(result, square);
        square = product(square, square);
    }
    return result;
}

/* Entry b of slice n: the effect of byte b with n bytes after it. Slice 0 is the standard table. */
using Slices = std::array<Table, 8>;

consteval Slices slices() {
    Slices all{};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t crc = byte;
        for (Table &slice : all) {
            for (int bit = 0; bit < 8; ++bit) crc = timesX(crc);
            slice[byte] = crc;
        }
    }
    return all;
}

inline constexpr Slices kSlices = slices();

/* Byte by byte, as the CRC is defined. Only this form is right for a table that an application has changed. */
constexpr uint32_t byByte(std::span<const uint32_t, 256> table, uint32_t crc, Bytes bytes) {
    for (const uint8_t byte : bytes) crc = table[(crc ^ byte) & 0xFF] ^ (crc >> 8);
    return crc;
}

/* Eight bytes, the first in the lowest bits. */
constexpr uint64_t word(const uint8_t *bytes) {
    std::array<uint8_t, 8> all{};
    std::copy_n(bytes, all.size(), all.begin());
    const auto asStored = std::bit_cast<uint64_t>(all);
    return std::endian::native == std::endian::little ? asStored : __builtin_bswap64(asStored);
}

/* A step computes the register after one word. This step needs eight look-ups, and none of them needs the result of
 * another one. */
struct Slicing {
    constexpr uint32_t operator()(uint32_t crc, uint64_t next) const {
        next ^= crc;
        const auto effect = [next](unsigned i) { return kSlices[7 - i][(next >> (8 * i)) & 0xFF]; };
        return (effect(4) ^ effect(5) ^ effect(6) ^ effect(7)) ^ (effect(0) ^ effect(1) ^ effect(2) ^ effect(3));
    }
};

template <typename Step>
constexpr uint32_t byWord(Step step, uint32_t crc, Bytes bytes) {
    for (; bytes.size() >= 8; bytes = bytes.subspan(8)) crc = step(crc, word(bytes.data()));
    return byByte(kSlices[0], crc, bytes);
}

/* Each step needs the result of the step before it. So a block is cut into thirds that are computed at the same time.
 * The register of a third is then multiplied by x once for each bit that follows it in the block. Whole blocks are
 * removed from the front of the bytes. */
template <std::size_t kThird, typename Step>
constexpr uint32_t byThirds(Step step, uint32_t crc, Bytes &bytes) {
    constexpr uint32_t kOneThird = power(8 * kThird), kTwoThirds = power(16 * kThird);
    for (; bytes.size() >= 3 * kThird; bytes = bytes.subspan(3 * kThird)) {
        uint32_t second = 0, third = 0;
        for (const uint8_t *at = bytes.data(), *end = at + kThird; at != end; at += 8) {
            crc = step(crc, word(at));
            second = step(second, word(at + kThird));
            third = step(third, word(at + 2 * kThird));
        }
        crc = product(crc, kTwoThirds) ^ product(second, kOneThird) ^ third;
    }
    return crc;
}

/* The multiplications cost less per byte in a larger block. Three of the larger thirds still fit into a first-level
 * cache. */
template <typename Step>
constexpr uint32_t byBlock(Step step, uint32_t crc, Bytes bytes) {
    crc = byThirds<8192>(step, crc, bytes);
    crc = byThirds<512>(step, crc, bytes);
    return byWord(step, crc, bytes);
}

/* Whether this processor has instructions that byProcessor() needs. */
bool processorHelps();

/* For the standard table only, and for at least kLeastForProcessor bytes. */
inline constexpr uint32_t kLeastForProcessor = 64;
uint32_t byProcessor(uint32_t crc, Bytes bytes);

}  // namespace vos::crc32

#endif
