/* SPDX-License-Identifier: MIT */
/* The names its name in the socket directory, and the processes that own them. */
#ifndef VOSCTL_SOCKET_DIRECTORY_H
#define VOSCTL_SOCKET_DIRECTORY_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kernelSockets.h"
#include "names.h"

namespace vosctl {

/* The messages on a socket that have not been received yet. */
struct Queue {
    uint32_t nextBytes = 0; /* size of the first datagram */
    uint32_t atLeast = 0;   /* the least number of datagrams: those whose senders wait for the answer, or one */
};

struct SocketEntry {
    std::string file; /* in the socket directory */
    std::string path;
    Reach reach = Reach::failed;
    std::vector<Owner> owners;  /* the opener first; none when they cannot be seen */
    std::optional<Queue> queue; /* when the kernel's diagnostics report the socket */

    enum class Kind { normal, high, thread, threadHigh, requester } kind = Kind::normal;
    std::string name; /* the process's, for all but requesters */
    int thread = 0;   /* the thread channel's number */
};

/* All sockets of the directory by the names of their files. Throws a Failure when it exists and cannot be read. */
std::vector<SocketEntry> readSocketDirectory();

/* Whether the name of a file is one that the library gives to the socket of a request. */
bool isRequester(std::string_view file);

/* Whether somebody receives behind it. */
bool alive(const SocketEntry &entry);

/* The kernel's present limit of a queue, in datagrams. A socket keeps the limit of the time when it was created. */
std::optional<uint32_t> queueLimit();

}  // namespace vosctl

#endif
