/* SPDX-License-Identifier: MIT */
/* Switches to a VRF and back: prints the index of its loopback interface, and binds an address that is configured
 * there.
 *
 *     vrf NUMBER [ADDRESS]
 */
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vos.h>

static int32_t bound(const char *pAddress) {
    struct sockaddr_in address = {.sin_family = AF_INET};
    address.sin_addr.s_addr = vosInetAddr(pAddress);
    const int32_t fd = vosSocket(AF_INET, SOCK_DGRAM, 0);
    const int32_t result = vosBind(fd, (struct sockaddr *)&address, sizeof address);
    close(fd);
    return result;
}

int main(int argc, char **argv) {
    int32_t way = -1;
    uint32_t index = 0;
    if (argc < 2) {
        fprintf(stderr, "usage: vrf NUMBER [ADDRESS]\n");
        return 2;
    }
    vosProcessInit("vrf");
    if (vosSwitchToNetVrf((uint32_t)strtoul(argv[1], NULL, 10), &way) != VOS_OK) return 1;
    vosIfNameToKernelIndex("lo", &index);
    const int32_t inside = argc > 2 ? bound(argv[2]) : VOS_OK;
    if (vosNetVrfRestore(way) != VOS_OK) return 1;
    const int32_t outside = argc > 2 ? bound(argv[2]) : VOS_ERROR;
    printf("\nVRF %s: its lo has index %u", argv[1], index);
    if (argc > 2)
        printf("; %s %s there, and %s outside", argv[2], inside == 0 ? "is" : "is not", outside == 0 ? "is" : "is not");
    printf("\n");
    return inside == VOS_OK && outside != VOS_OK ? 0 : 1;
}
