/* SPDX-License-Identifier: MIT */
/* Which of the process's own sockets a descriptor is, and under which path others reach it. */
#ifndef VOS_MSG_OWN_SOCKETS_H
#define VOS_MSG_OWN_SOCKETS_H

#include <cstdint>
#include <string_view>

namespace vos {

/* Stores the descriptor of a channel's socket where `owner` points to, and keeps its path when that is one of the four
 * globals for it. Other threads may read both at any time. */
void storeOwnSocket(int32_t *owner, int32_t fd, std::string_view path);

struct OwnSocket {
    uint8_t kind; /* VOS_MSG_TAP_NORMAL and so on; 0: none of the process's channels */
    std::string_view path;
};
OwnSocket ownSocket(int32_t fd);

/* The path of the main channel's normal socket; empty when it is not open. */
std::string_view processPath();

}  // namespace vos

#endif
