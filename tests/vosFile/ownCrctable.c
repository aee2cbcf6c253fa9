/* SPDX-License-Identifier: MIT */
/* An application that defines the table of the CRC-32 itself: the library refers to its definition. */
#include "vos.h"

uint32_t vosCrctable[256];

int main(void) {
    uint8_t bytes[50000];
    uint32_t crc = 1;
    for (uint32_t i = 0; i < 256; ++i) vosCrctable[i] = (i + 1) * 2654435761u;
    for (uint32_t i = 0; i < sizeof bytes; ++i) {
        bytes[i] = (uint8_t)(i * i >> 3);
        crc = vosCrctable[(crc ^ bytes[i]) & 0xFF] ^ (crc >> 8);
    }
    return vosFileCrc32(1, bytes, sizeof bytes) == crc ? 0 : 1;
}
