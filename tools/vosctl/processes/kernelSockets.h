/* SPDX-License-Identifier: MIT */
/* The Unix-domain sockets of this machine, as the kernel reports them. */
#ifndef VOSCTL_KERNEL_SOCKETS_H
#define VOSCTL_KERNEL_SOCKETS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vosctl {

struct KernelSocket {
    uint32_t inode = 0; /* of the socket itself: the N in the link "socket:[N]" of a descriptor */
    std::string path;   /* to which it was bound; empty when it was not */
    /* Known from the socket diagnostics only. */
    uint32_t fileInode = 0;   /* of the path in the file system */
    uint32_t peer = 0;        /* the socket to which it is connected */
    uint32_t nextBytes = 0;   /* size of the datagram that will be received next */
    uint32_t unreadBytes = 0; /* memory of messages that were sent from here and have not been received */
};

struct KernelSockets {
    std::vector<KernelSocket> sockets;
    bool diagnosed = false; /* the socket diagnostics have answered; otherwise only inodes and paths are known */
};

/* Asks the kernel's socket diagnostics. Where they are missing, reads the table in /proc. */
KernelSockets kernelSockets();

/* A process that has a socket open. */
struct Owner {
    int pid = 0;
    uint64_t started = 0; /* clock ticks since the boot */
    std::string program;  /* the last part of its first argument */
};

/* The processes that have a socket open, sorted by start time: the process that opened it comes before those that
 * inherited it. Processes of other users are visible only with privilege. */
std::vector<std::pair<uint32_t, Owner>> socketOwners();

}  // namespace vosctl

#endif
