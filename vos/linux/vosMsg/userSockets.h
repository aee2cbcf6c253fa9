/* SPDX-License-Identifier: MIT */
/* The set of descriptors that a receive loop waits on, and the application's own descriptors in it. */
#ifndef VOS_MSG_USER_SOCKETS_H
#define VOS_MSG_USER_SOCKETS_H

#include <sys/select.h>

#include <algorithm>
#include <cstdint>

#include "../base/caller.h"
#include "vosMsgChannel.h"

namespace vos {

/* A select() set that is never written or read out of bounds. */
class ReadSet {
  public:
    ReadSet() { FD_ZERO(&set_); }

    static bool holds(int fd) { return fd >= 0 && fd < FD_SETSIZE; }

    bool add(int fd) {
        if (!holds(fd)) return false;
        set_.fds_bits[fd / NFDBITS] |= bit(fd);
        highest_ = std::max(highest_, fd);
        return true;
    }
    [[nodiscard]] bool has(int fd) const { return holds(fd) && (set_.fds_bits[fd / NFDBITS] & bit(fd)) != 0; }

    /* Waits until one is readable. Afterwards the set holds those that are. */
    int wait(timeval *limit) { return select(highest_ + 1, &set_, nullptr, nullptr, limit); }

  private:
    /* Not with the C library's macros: they check the descriptor once more, in a function call. */
    static fd_mask bit(int fd) { return static_cast<fd_mask>(1UL << (fd % NFDBITS)); }

    fd_set set_;
    int highest_ = -1;
};

/* A moment in the history of the registered descriptors. Adding a descriptor and serving one each begin a new one. */
using Moment = uint64_t;

/* Adds the registered descriptors to a set. Returns the moment at which the set was made. */
Moment watchUserSockets(Caller me, ReadSet &set);

/* Calls the handlers of the descriptors that are ready and that nobody has added or served since the set was made. */
void callUserSockets(const ReadSet &ready, Moment made);

}  // namespace vos

#endif
