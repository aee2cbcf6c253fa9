/* SPDX-License-Identifier: MIT */
/* The CRC-32 of images. An image has tens of megabytes, and an installation waits for the checksum. So the checksum has
 * to be fast. */
#include "../base/crc32.h"

#include <cstring>

#include "vosFile.h"

using vos::crc32::byBlock, vos::crc32::byByte, vos::crc32::byProcessor, vos::crc32::Bytes, vos::crc32::byWord;
using vos::crc32::kLeastForProcessor, vos::crc32::kSlices, vos::crc32::processorHelps, vos::crc32::Slicing;

namespace {

constexpr uint8_t kKnown[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
static_assert(kSlices[0][0] == 0 && kSlices[0][1] == 0x77073096u && kSlices[0][128] == 0xEDB88320u &&
              kSlices[0][255] == 0x2D02EF8Du);
static_assert(~byByte(kSlices[0], 0xFFFFFFFFu, kKnown) == 0xCBF43926u);
static_assert(~byWord(Slicing{}, 0xFFFFFFFFu, kKnown) == 0xCBF43926u);

/* From this length on, comparing the table costs less than going byte by byte. The fast forms are right for the
 * standard table only; an application may change the exported table, or define its own. */
constexpr uint32_t kLong = 16;

bool standardTable() { return memcmp(vosCrctable, kSlices[0].data(), sizeof vosCrctable) == 0; }

}  // namespace

/* C++ has no loop in an initialiser of a plain array, so these macros list the 256 entries. */
#define CRC_4(i)  kSlices[0][i], kSlices[0][(i) + 1], kSlices[0][(i) + 2], kSlices[0][(i) + 3]
#define CRC_16(i) CRC_4(i), CRC_4((i) + 4), CRC_4((i) + 8), CRC_4((i) + 12)
#define CRC_64(i) CRC_16(i), CRC_16((i) + 16), CRC_16((i) + 32), CRC_16((i) + 48)
constinit uint32_t vosCrctable[256] = {CRC_64(0), CRC_64(64), CRC_64(128), CRC_64(192)};

uint32_t vosFileCrc32(uint32_t ulCrc, const uint8_t *pBuf, uint32_t ulLen) {
    if (pBuf == nullptr) return ulCrc;
    const Bytes bytes{pBuf, ulLen};
    if (ulLen < kLong || !standardTable()) return byByte(vosCrctable, ulCrc, bytes);
    const bool byInstructions = ulLen >= kLeastForProcessor && processorHelps();
    return byInstructions ? byProcessor(ulCrc, bytes) : byBlock(Slicing{}, ulCrc, bytes);
}
