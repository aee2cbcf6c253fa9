/* SPDX-License-Identifier: MIT */
/* The threads of a process that are in a system call on one of its sockets. */
#ifndef VOSCTL_BLOCKED_THREADS_H
#define VOSCTL_BLOCKED_THREADS_H

#include <cstddef>
#include <cstdint>
#include <map>

namespace vosctl {

enum class Blocked { receiving, sending };

struct BlockedThread {
    int thread = 0;
    Blocked in = Blocked::receiving;
};

struct Threads {
    std::size_t count = 0;
    bool seen = false;                          /* the system calls of all of them could be read */
    bool polling = false;                       /* one waits for several descriptors; which ones cannot be seen */
    std::map<uint32_t, BlockedThread> bySocket; /* by the socket's inode */
};

Threads threadsOf(int pid);

}  // namespace vosctl

#endif
