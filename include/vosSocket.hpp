/* SPDX-License-Identifier: MIT */
/**
 * @file vosSocket.hpp
 * C++: connections with a time-out. The other socket calls of vosSys.h are those of the system; use them, or the
 * system's own, with unique_fd::get().
 */
#ifndef VOS_SOCKET_HPP
#define VOS_SOCKET_HPP

#include <netinet/in.h>
#include <sys/socket.h>

#include "vosProcess.hpp"
#include "vosSys.h"
#include "vosTime.hpp"

namespace vos {
inline namespace api1 {

/**
 * A new socket that is connected to an address: sockaddr_in, sockaddr_in6, sockaddr_un or another structure that begins
 * with its family. The socket is blocking, and closed in programs that are started.
 *
 * @param type  SOCK_STREAM, SOCK_SEQPACKET or SOCK_DGRAM
 * @param wait  how long to wait; a connection that is there at once needs no time
 * @return the socket's owner; VOS_ERR_TIMEOUT with ETIMEDOUT; VOS_ERROR with errno: EINTR when a signal handler ended
 *         the wait, ECONNREFUSED and the other errors of a connection. Nothing is left open after a failure
 * @threads any
 */
template <class Address>
[[nodiscard]] result<unique_fd> connected_socket(int type, const Address &address, timeout wait) noexcept {
    static_assert(std::is_trivially_copyable_v<Address> && sizeof(Address) >= sizeof(sa_family_t) &&
                      !std::is_pointer_v<Address> && !std::is_same_v<Address, sockaddr>,
                  "the address is a structure such as sockaddr_in; sockaddr itself does not tell its length");
    const auto *const generic = reinterpret_cast<const sockaddr *>(&address);
    unique_fd socket{vosSocket(generic->sa_family, type | SOCK_CLOEXEC, 0)};
    if (!socket) return detail::with_errno(VOS_ERROR);
    timeval left{};
    if (!wait.is_forever()) {
        left.tv_sec = static_cast<decltype(left.tv_sec)>(wait.us() / 1000000);
        left.tv_usec = static_cast<decltype(left.tv_usec)>(wait.us() % 1000000);
    }
    /* The C call may leave the socket non-blocking. */
    if (vosConnectWithTimeout(socket.get(), generic, sizeof address, wait.is_forever() ? nullptr : &left) != VOS_OK)
        return detail::with_errno(errno == ETIMEDOUT ? VOS_ERR_TIMEOUT : VOS_ERROR);
    if (vosSetNonblocking(socket.get(), 0) != VOS_OK) return detail::with_errno(VOS_ERROR);
    return socket;
}

/**
 * The IPv4 address of a host, ready to connect to.
 *
 * @param host  a name or a dotted address. Looking up a name may take long, and no time-out limits it
 * @param port  in the machine's byte order
 * @return VOS_ERROR when there is none; 0.0.0.0 is taken as none
 * @threads any
 */
[[nodiscard]] inline result<sockaddr_in> ipv4_address(c_text host, uint16_t port) noexcept {
    const uint32_t found = vosGetAddrIpv4(host.get());
    if (found == 0) return error{VOS_ERROR};
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(found);
    return address;
}

}  // namespace api1
}  // namespace vos

#endif
