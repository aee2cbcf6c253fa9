/* SPDX-License-Identifier: MIT */
/* Orders messages from the device's kernel module, and prints how many the receiver's queue has taken.
 *
 *     order packet PID LENGTH [COUNT]
 *     order link PID KIND VALUE2 VALUE3
 */
#include <linux/netlink.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

#include "../module/vosdevice.h"

static __u32 number(char **argv, int argc, int at, __u32 otherwise) {
    return at < argc ? (__u32)strtoul(argv[at], NULL, 0) : otherwise;
}

int main(int argc, char **argv) {
    struct {
        struct nlmsghdr outer;
        struct vosdevice_order order;
    } request = {.outer.nlmsg_len = sizeof request};
    struct {
        struct nlmsghdr outer;
        __u32 taken;
    } answer;
    struct sockaddr_nl kernel = {.nl_family = AF_NETLINK};
    if (argc < 4) {
        fprintf(stderr, "usage: order packet PID LENGTH [COUNT] | order link PID KIND VALUE2 VALUE3\n");
        return 2;
    }
    request.order.port = number(argv, argc, 2, 0);
    request.order.count = 1;
    if (strcmp(argv[1], "packet") == 0) {
        request.order.kind = VOSDEVICE_PACKET;
        request.order.length = number(argv, argc, 3, 0);
        request.order.count = number(argv, argc, 4, 1);
    } else {
        request.order.kind = VOSDEVICE_LINK;
        for (int i = 0; i < 3; ++i) request.order.values[i] = number(argv, argc, 3 + i, 0);
    }
    const int module = socket(AF_NETLINK, SOCK_RAW, VOSDEVICE_PROTOCOL);
    if (module < 0 ||
        sendto(module, &request, sizeof request, 0, (struct sockaddr *)&kernel, sizeof kernel) != sizeof request ||
        recv(module, &answer, sizeof answer, 0) != sizeof answer) {
        perror("order");
        return 1;
    }
    printf("%u\n", answer.taken);
    return 0;
}
