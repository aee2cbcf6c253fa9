/* SPDX-License-Identifier: MIT */
/* Makes an application image for the OLT: a header (type, two compatibility words, checksum; big-endian) and the file.
 *
 *     mkimage COMPAT_A COMPAT_B FILE IMAGE
 */
#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>
#include <vos.h>

int main(int argc, char **argv) {
    if (argc != 5) {
        fprintf(stderr, "usage: mkimage COMPAT_A COMPAT_B FILE IMAGE\n");
        return 2;
    }
    const int32_t size = vosFileSize(argv[3]);
    uint8_t *const payload = size > 0 ? malloc((size_t)size) : NULL;
    if (payload == NULL || vosFileRead(argv[3], payload, (uint32_t)size) != size) {
        fprintf(stderr, "mkimage: %s cannot be read\n", argv[3]);
        return 1;
    }
    const uint32_t header[4] = {htonl(2), htonl((uint32_t)strtoul(argv[1], NULL, 0)),
                                htonl((uint32_t)strtoul(argv[2], NULL, 0)),
                                htonl(~vosFileCrc32(0xFFFFFFFF, payload, (uint32_t)size))};
    FILE *const image = fopen(argv[4], "wb");
    if (image == NULL || fwrite(header, sizeof header, 1, image) != 1 || fwrite(payload, (size_t)size, 1, image) != 1 ||
        fclose(image) != 0) {
        fprintf(stderr, "mkimage: %s cannot be written\n", argv[4]);
        return 1;
    }
    free(payload);
    return 0;
}
