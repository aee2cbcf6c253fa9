/* SPDX-License-Identifier: MIT */
/* Compares the CRC-32 for all lengths around the bounds of its loops. To be run on a processor without instructions for
 * the CRC-32. */
#include <stdio.h>
#include <stdlib.h>

#include "vos.h"

#if defined(__x86_64__)
#define HELPS __builtin_cpu_supports("pclmul")
#else
#define HELPS 0
#endif

static uint8_t bytes[60000];

static void compare(uint32_t begin, uint32_t length) {
    uint32_t crc = length;
    for (uint32_t i = 0; i < length; ++i) crc = vosCrctable[(crc ^ bytes[begin + i]) & 0xFF] ^ (crc >> 8);
    if (vosFileCrc32(length, bytes + begin, length) != crc) {
        printf("%u bytes at %u\n", length, begin);
        exit(1);
    }
}

int main(void) {
    if (HELPS) {
        puts("this processor helps");
        return 2;
    }
    for (uint32_t i = 0; i < sizeof bytes; ++i) bytes[i] = (uint8_t)(i * i >> 3);
    for (uint32_t length = 0; length < 300; ++length) compare(length % 16, length);
    for (uint32_t length = 1520; length < 1560; ++length) compare(length % 16, length);
    for (uint32_t length = 24560; length < 24600; ++length) compare(length % 16, length);
    compare(3, 59991);
    return 0;
}
