/* SPDX-License-Identifier: MIT */
/* Paths and addresses of message sockets, and the binding of a socket to its path. */
#ifndef VOS_MSG_ADDRESS_H
#define VOS_MSG_ADDRESS_H

#include <sys/socket.h>
#include <sys/un.h>

#include <cstdint>
#include <string_view>

#include "../base/text.h"

namespace vos {

/* The type of every message socket. A program that this process starts does not inherit it: it would keep the socket's
 * name in use after this process has ended, and senders would wait for answers instead of being refused. */
inline constexpr int kDatagram = SOCK_DGRAM | SOCK_CLOEXEC;

/* A path that is too long must never become the path of another process. The kernel refuses one that does not fit into
 * an address. One that does not even fit in here is cut, and is then still too long for an address. */
inline constexpr std::size_t kLongestComponent = 255;
using Path = Text<sizeof "/tmp/vos/" + kLongestComponent + 32>;

Path normalPath(const char *processName);
Path highPath(const char *processName);
Path threadPath(const char *processName, int32_t number);

/* A path for a requester. Two threads never get the same path. A thread gets a path again when the process has taken
 * 126 others since, whichever threads took them. */
Text<128> requesterPath();

/* The address of a path, with its length. The kernel may read up to 128 bytes of an address that it refuses for its
 * length. Of an address that it takes it reads no more than the length. */
class LocalAddress {
  public:
    explicit LocalAddress(std::string_view path);
    [[nodiscard]] const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&storage_); }
    [[nodiscard]] socklen_t length() const { return length_; }

  private:
    union {
        sockaddr_storage storage_;
        sockaddr_un local_;
    };
    uint32_t length_;
};

/* Removes what an earlier process has left under the path, and binds. False with errno when bind() fails. */
bool bindTo(int socket, const char *path);

/* As vosMsgSocketOptmize(), for the netlink socket. */
int32_t vosMsgNetlinkSocketOptmize(int32_t iSocketFd, int32_t iVerify);

}  // namespace vos

#endif
