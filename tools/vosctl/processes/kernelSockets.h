/* SPDX-License-Identifier: MIT */
/* The Unix-domain sockets of this machine, as the kernel tells them. */
#ifndef VOSCTL_KERNEL_SOCKETS_H
#define VOSCTL_KERNEL_SOCKETS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vosctl {

struct KernelSocket {
    uint32_t inode = 0; /* of the socket itself: "socket:[N]" behind a descriptor */
    std::string path;   /* to which it was bound, empty without one */
    /* What only the socket diagnostics tell. */
    uint32_t fileInode = 0;   /* of the path in the file system */
    uint32_t peer = 0;        /* the socket to which it is connected */
    uint32_t nextBytes = 0;   /* size of the datagram that will be received next */
    uint32_t unreadBytes = 0; /* memory of what was sent from here and has not been received */
};

struct KernelSockets {
    std::vector<KernelSocket> sockets;
    bool diagnosed = false; /* the diagnostics answered; otherwise only inodes and paths are known */
};

/* Asks the kernel's socket diagnostics, and where they are missing, the table in /proc. */
KernelSockets kernelSockets();

/* A process that holds a socket. */
struct Owner {
    int pid = 0;
    uint64_t started = 0; /* clock ticks since the boot */
    std::string program;  /* the last part of its first argument */
};

/* The processes that hold a socket, by the time of their start: who opened it comes before those that inherited it.
 * Those of other users are not seen without privilege. */
std::vector<std::pair<uint32_t, Owner>> socketOwners();

}  // namespace vosctl

#endif
