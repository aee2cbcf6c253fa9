/* SPDX-License-Identifier: MIT */
/* Who waits for whom: the requests that are under way, as the kernel's socket diagnostics tell them. */
#ifndef VOSCTL_WAITS_H
#define VOSCTL_WAITS_H

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace vosctl {

/* A process that waits, or for which one waits. */
struct Party {
    int pid = 0;         /* 0 when it cannot be seen */
    std::string name;    /* empty when it receives under none */
    std::string program; /* empty when it cannot be seen */
    std::size_t threads = 0;
};

struct Wait {
    enum class Phase {
        sending, /* the receiver's queue is full: the request is not in it yet */
        queued,  /* the request has not been received */
        served,  /* it has been received, and no answer has come */
        answered /* the answer has come and has not been read */
    };
    std::size_t from = 0; /* places among the parties */
    std::size_t to = 0;
    std::string path;      /* of the socket to which the request went */
    std::string requester; /* the requester's own socket */
    Phase phase = Phase::served;
    int thread = 0;                                  /* that is in the system call; 0 when it cannot be seen */
    std::optional<std::chrono::nanoseconds> elapsed; /* since the requester's socket was made */
};

struct Waits {
    std::vector<Party> parties;
    std::vector<Wait> waits; /* the longest first */
    bool diagnosed = false;  /* otherwise the kernel does not tell who waits */

    struct Circle {
        std::vector<std::size_t> waits; /* each waits for the sender of the next, the last for that of the first */
        bool certain = false;           /* each of the processes has one thread only, and that thread waits */
    };
    std::vector<Circle> circles;
};

/* As it is now. Throws a Failure when the socket directory cannot be read. */
Waits readWaits();

}  // namespace vosctl

#endif
