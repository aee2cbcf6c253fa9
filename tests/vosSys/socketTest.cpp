/* SPDX-License-Identifier: MIT */
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

#include <array>
#include <cstring>

#include "sockets.h"
#include "support/faults.h"
#include "support/substitute.h"
#include "vos.h"

using namespace vostest;
using testing::IsEmpty;

TEST(Socket, AStreamIsListenedForConnectedAcceptedAndShutDown) {
    const Outcome outcome = run([] {
        Address server;
        const int listener = listeningOn(server);
        const int client = vosSocket(AF_INET, SOCK_STREAM, 0);
        ASSERT_EQ(vosConnect(client, server.get(), Address::size), 0);
        Address peer;
        uint32_t length = 100;
        char room[100];
        const int connection = vosAccept(listener, reinterpret_cast<sockaddr *>(room), &length);
        ASSERT_GE(connection, 0);
        EXPECT_EQ(length, Address::size) << "what the address needs";

        Address own;
        length = Address::size;
        EXPECT_EQ(vosGetsockname(client, own.get(), &length), 0);
        EXPECT_EQ(memcmp(room, &own.in, Address::size), 0);
        length = Address::size;
        EXPECT_EQ(vosGetpeername(client, peer.get(), &length), 0);
        EXPECT_EQ(peer.in.sin_port, server.in.sin_port);

        EXPECT_EQ(vosSend(client, "ping", 4, 0), 4);
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(connection, &readable);
        timeval patience{10, 0};
        EXPECT_EQ(vosSelect(connection + 1, &readable, nullptr, nullptr, &patience), 1);
        char text[8] = {};
        EXPECT_EQ(vosRecv(connection, text, sizeof text, 0), 4);
        EXPECT_STREQ(text, "ping");
        EXPECT_EQ(vosShutdown(client, SHUT_WR), 0);
        EXPECT_EQ(vosRecv(connection, text, sizeof text, 0), 0);
    });
    EXPECT_EQ(outcome.output, "");
}

TEST(Socket, DatagramsAreSentAndReceivedInEveryForm) {
    run([] {
        Address a;
        Address b;
        const int first = boundTo(a, SOCK_DGRAM);
        const int second = boundTo(b, SOCK_DGRAM);
        EXPECT_EQ(vosSendto(first, "one", 3, 0, b.get(), Address::size), 3);
        char text[8] = {};
        Address from;
        uint32_t length = Address::size;
        EXPECT_EQ(vosRecvfrom(second, text, sizeof text, 0, from.get(), &length), 3);
        EXPECT_STREQ(text, "one");
        EXPECT_EQ(from.in.sin_port, a.in.sin_port);

        iovec part{text, 3};
        msghdr message{};
        message.msg_name = a.get();
        message.msg_namelen = Address::size;
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        EXPECT_EQ(vosSendmsg(second, &message, 0), 3);
        EXPECT_EQ(vosRecvmsg(first, &message, 0), 3);
        EXPECT_EQ(vosRecvfrom(first, text, sizeof text, MSG_DONTWAIT, nullptr, nullptr), -1);
        EXPECT_EQ(errno, EAGAIN);
    });
}

TEST(Socket, OptionsAreSetAndReadWithTheirLength) {
    run([] {
        const int fd = vosSocket(AF_INET, SOCK_DGRAM, 0);
        const int on = 1;
        EXPECT_EQ(vosSetsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), 0);
        int64_t value = 0;
        uint32_t length = sizeof value;
        EXPECT_EQ(vosGetsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &value, &length), 0);
        EXPECT_EQ(length, sizeof(int));
        EXPECT_EQ(value, 1);
    });
}

TEST(Socket, ALengthIsWrittenBackWhetherOrNotTheCallSucceeded) {
    run([] {
        uint32_t length = 12;
        Address address;
        EXPECT_EQ(vosAccept(-1, address.get(), &length), -1);
        EXPECT_EQ(errno, EBADF);
        EXPECT_EQ(length, 12U);
        substitute(
            "accept", +[](int, sockaddr *, socklen_t *size) {
                *size = 99;
                errno = EPROTO;
                return -1;
            });
        EXPECT_EQ(vosAccept(-1, address.get(), &length), -1);
        EXPECT_EQ(errno, EPROTO);
        EXPECT_EQ(length, 99U);
    });
}

TEST(Socket, ANullLengthIsPassedOnAsNull) {
    run([] {
        Address server;
        const int listener = listeningOn(server);
        const int client = vosSocket(AF_INET, SOCK_STREAM, 0);
        ASSERT_EQ(vosConnect(client, server.get(), Address::size), 0);
        EXPECT_GE(vosAccept(listener, nullptr, nullptr), 0);
        const auto expectNull = +[](int, sockaddr *, socklen_t *length) {
            EXPECT_EQ(length, nullptr);
            errno = EFAULT;
            return -1;
        };
        substitute("getsockname", expectNull);
        substitute("getpeername", expectNull);
        EXPECT_EQ(vosGetsockname(client, server.get(), nullptr), -1);
        EXPECT_EQ(vosGetpeername(client, server.get(), nullptr), -1);
        substitute(
            "getsockopt", +[](int, int, int, void *, socklen_t *length) {
                EXPECT_EQ(length, nullptr);
                errno = EFAULT;
                return -1;
            });
        EXPECT_EQ(vosGetsockopt(client, SOL_SOCKET, SO_ERROR, &server, nullptr), -1);
        EXPECT_EQ(errno, EFAULT);
    });
}

TEST(Socket, ANegativeLengthIsInvalid) {
    run([] {
        EXPECT_THAT(Faults::record([] { EXPECT_EQ(vosSend(1, "x", -1, 0), -1); }), IsEmpty());
        EXPECT_EQ(errno, EINVAL);
    });
}

TEST(Socket, ACountBeyondTheSetsOfTheHeaderIsPassedOn) {
    run([] {
        const rlimit many{4096, 4096};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &many), 0);
        timeval now{0, 0};
        EXPECT_EQ(vosSelect(FD_SETSIZE, nullptr, nullptr, nullptr, &now), 0);
        EXPECT_EQ(vosSelect(2000, nullptr, nullptr, nullptr, &now), 0) << "there are no sets";
        EXPECT_EQ(vosSelect(-1, nullptr, nullptr, nullptr, &now), -1);
        EXPECT_EQ(errno, EINVAL);

        constexpr int kFd = 2000;
        std::array<int, 2> ends{};
        ASSERT_EQ(pipe(ends.data()), 0);
        ASSERT_EQ(write(ends[1], "x", 1), 1);
        ASSERT_EQ(dup2(ends[0], kFd), kFd);
        std::array<uint64_t, 4096 / 64> bits{};
        bits[kFd / 64] = uint64_t{1} << (kFd % 64);
        EXPECT_EQ(vosSelect(kFd + 1, reinterpret_cast<fd_set *>(bits.data()), nullptr, nullptr, &now), 1);
        EXPECT_EQ(bits[kFd / 64], uint64_t{1} << (kFd % 64));

        ASSERT_EQ(read(kFd, bits.data(), 1), 1);
        ASSERT_EQ(write(ends[1], "x", 1), 1);
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(ends[0], &readable);
        EXPECT_EQ(vosSelect(FD_SETSIZE, &readable, nullptr, nullptr, &now), 1);
    });
}

TEST(Socket, EveryFailureIsThatOfTheCLibrary) {
    const auto attempts =
        failEachCall([] {},
                     [] {
                         long failures = 0;
                         int failed = 0;
                         const auto count = [&](int result) {
                             if (result < 0) {
                                 failures += 1;
                                 failed = errno;
                             }
                         };
                         Address address;
                         uint32_t length = Address::size;
                         char text[64] = "";
                         msghdr message{};
                         iovec part{text, sizeof text};
                         message.msg_iov = &part;
                         message.msg_iovlen = 1;
                         fd_set none;
                         FD_ZERO(&none);
                         timeval now{0, 0};
                         const int on = 1;

                         int created = vosSocket(AF_INET, SOCK_STREAM, 0);
                         count(created);
                         close(created);
                         created = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
                         count(vosSetsockopt(created, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on));
                         count(vosBind(created, address.get(), Address::size));
                         count(vosListen(created, 4));
                         getsockname(created, address.get(), &length);
                         listen(created, 4);
                         count(vosGetsockname(created, Address{}.get(), &length));
                         const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
                         count(vosConnect(client, address.get(), Address::size));
                         connect(client, address.get(), Address::size);
                         const int accepted = vosAccept(created, nullptr, nullptr);
                         count(accepted);
                         count(vosGetpeername(client, Address{}.get(), &length));
                         length = sizeof on;
                         count(vosGetsockopt(client, SOL_SOCKET, SO_TYPE, text, &length));
                         count(vosSend(client, "x", 1, 0));
                         count(vosSendto(client, "x", 1, 0, nullptr, 0));
                         count(vosSendmsg(client, &message, 0));
                         const int server = accepted >= 0 ? accepted : accept4(created, nullptr, nullptr, SOCK_CLOEXEC);
                         send(client, text, sizeof text, 0);
                         count(vosSelect(0, nullptr, nullptr, nullptr, &now));
                         count(vosRecv(server, text, 1, 0));
                         count(vosRecvfrom(server, text, 1, 0, nullptr, nullptr));
                         count(vosRecvmsg(server, &message, 0));
                         count(vosShutdown(client, SHUT_WR));
                         count(vosSetNonblocking(client, 1));
                         count(vosInetPton(AF_INET, "127.0.0.1", &address.in.sin_addr));
                         count(vosInetNtop(AF_INET, &address.in.sin_addr, text, sizeof text) == nullptr ? -1 : 0);
                         for (const int fd : {created, client, server}) close(fd);
                         EXPECT_EQ(failed, failures == 0 ? 0 : EIO);
                         return failures;
                     });
    expectNothingKept(attempts);
    EXPECT_EQ(attempts.size(), 21U);
    for (const Attempt &each : attempts) {
        EXPECT_EQ(each.result, 1) << describe(each.point);
        EXPECT_THAT(each.messages, IsEmpty()) << describe(each.point);
    }
}

TEST(NonBlocking, IsSwitchedOnByOneAndOffByAnythingElse) {
    run([] {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        const int before = fcntl(fd, F_GETFL);
        for (const int off : {0, 2, -1}) {
            EXPECT_EQ(vosSetNonblocking(fd, 1), 0);
            EXPECT_EQ(fcntl(fd, F_GETFL), before | O_NONBLOCK);
            EXPECT_EQ(vosSetNonblocking(fd, off), 0);
            EXPECT_EQ(fcntl(fd, F_GETFL), before);
        }
        EXPECT_EQ(vosSetNonblocking(-1, 1), -1);
        EXPECT_EQ(errno, EBADF);
        Faults::arm({.call = "fcntl", .occurrence = 2});
        EXPECT_EQ(vosSetNonblocking(fd, 1), -1);
        EXPECT_TRUE(Faults::disarm());
        EXPECT_EQ(fcntl(fd, F_GETFL), before);
    });
}
