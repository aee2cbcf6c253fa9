/* SPDX-License-Identifier: MIT */
/* What the receive loop waits on. */
#ifndef VOS_MSG_USER_SOCKETS_H
#define VOS_MSG_USER_SOCKETS_H

#include <sys/select.h>

#include <algorithm>

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

    /* Waits until one is readable; afterwards the set holds those that are. */
    int wait(timeval *limit) { return select(highest_ + 1, &set_, nullptr, nullptr, limit); }

  private:
    /* By hand: the C library's macros check the descriptor once more, in a call. */
    static fd_mask bit(int fd) { return static_cast<fd_mask>(1UL << (fd % NFDBITS)); }

    fd_set set_;
    int highest_ = -1;
};

void watchUserSockets(Caller me, ReadSet &set);
void callUserSockets(const ReadSet &ready);

}  // namespace vos

#endif
