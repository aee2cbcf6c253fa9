/* SPDX-License-Identifier: MIT */
/* Addresses of the loopback interface, and sockets bound to them. */
#ifndef TESTS_VOS_SYS_SOCKETS_H
#define TESTS_VOS_SYS_SOCKETS_H

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>

#include "vosSys.h"

namespace vostest {

struct Address {
    explicit Address(uint16_t port = 0, uint32_t host = INADDR_LOOPBACK) {
        in.sin_family = AF_INET;
        in.sin_port = htons(port);
        in.sin_addr.s_addr = htonl(host);
    }
    sockaddr *get() { return reinterpret_cast<sockaddr *>(&in); }
    sockaddr_in in{};
    static constexpr uint32_t size = sizeof(sockaddr_in);
};

/* A socket of that type, bound to a free port of the loopback interface. */
inline int boundTo(Address &address, int type) {
    const int fd = vosSocket(AF_INET, type, 0);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(vosBind(fd, address.get(), Address::size), 0);
    uint32_t length = Address::size;
    EXPECT_EQ(vosGetsockname(fd, address.get(), &length), 0);
    EXPECT_EQ(length, Address::size);
    return fd;
}

inline int listeningOn(Address &address) {
    const int fd = boundTo(address, SOCK_STREAM);
    EXPECT_EQ(vosListen(fd, 4), 0);
    return fd;
}

}  // namespace vostest

#endif
