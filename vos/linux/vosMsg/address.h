/* SPDX-License-Identifier: MIT */
/* Where message sockets live: paths, addresses, and the binding of a socket to its path. */
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

/* A path too long for an address is refused by the kernel, and one that does not fit here ends in a component too long
 * for any file: a name that is cut off never becomes another process's. */
inline constexpr std::size_t kLongestComponent = 255;
using Path = Text<sizeof "/tmp/vos/" + kLongestComponent + 32>;

Path normalPath(const char *processName);
Path highPath(const char *processName);
Path threadPath(const char *processName, int32_t number);

/* A path of this process's own, different for each of its threads and of a thread's last 127 requests. */
Text<128> requesterPath();

/* The address of a path, with its length. The kernel may read up to 128 bytes of an address that it then refuses; of
 * one that it takes it reads no more than the path's. */
class LocalAddress {
  public:
    explicit LocalAddress(std::string_view path);
    [[nodiscard]] const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&room_); }
    [[nodiscard]] socklen_t length() const { return length_; }

  private:
    union {
        sockaddr_storage room_;
        sockaddr_un local_;
    };
    uint32_t length_;
};

/* Removes what an earlier process has left under the path, a terminated text, and binds. False with errno when bind()
 * fails. */
bool bindTo(int socket, std::string_view path);

/* As vosMsgSocketOptmize(), for the netlink socket. */
int32_t vosMsgNetlinkSocketOptmize(int32_t iSocketFd, int32_t iVerify);

}  // namespace vos

#endif
