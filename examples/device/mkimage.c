/* SPDX-License-Identifier: MIT */
/* Makes an image for the OLT of a file: type 1 for the boot loader, whose header comes last, 2 for the application,
 * whose header comes first. A header is the type, two compatibility words and the checksum; big-endian.
 *
 *     mkimage TYPE COMPAT_A COMPAT_B FILE IMAGE
 */
#include <arpa/inet.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <vos.h>

static uint32_t word(const char *pText) { return htonl((uint32_t)strtoul(pText, NULL, 0)); }

static bool writeImage(const char *pPath, const uint32_t *pHeader, const uint8_t *pPayload, size_t size) {
    FILE *const image = fopen(pPath, "wb");
    if (image == NULL) return false;
    const bool last = ntohl(pHeader[0]) == 1;
    bool written = last || fwrite(pHeader, 16, 1, image) == 1;
    written = written && fwrite(pPayload, size, 1, image) == 1;
    written = written && (!last || fwrite(pHeader, 16, 1, image) == 1);
    return fclose(image) == 0 && written;
}

int main(int argc, char **argv) {
    if (argc != 6) {
        fprintf(stderr, "usage: mkimage TYPE COMPAT_A COMPAT_B FILE IMAGE\n");
        return 2;
    }
    const int32_t size = vosFileSize(argv[4]);
    uint8_t *const payload = size > 0 ? malloc((size_t)size) : NULL;
    if (payload == NULL || vosFileRead(argv[4], payload, (uint32_t)size) != size) {
        fprintf(stderr, "mkimage: %s cannot be read\n", argv[4]);
        return 1;
    }
    const uint32_t header[4] = {word(argv[1]), word(argv[2]), word(argv[3]),
                                htonl(~vosFileCrc32(0xFFFFFFFF, payload, (uint32_t)size))};
    const bool written = writeImage(argv[5], header, payload, (size_t)size);
    if (!written) fprintf(stderr, "mkimage: %s cannot be written\n", argv[5]);
    free(payload);
    return written ? 0 : 1;
}
