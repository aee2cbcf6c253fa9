/* SPDX-License-Identifier: MIT */
#include <fcntl.h>
#include <gmock/gmock.h>
#include <net/route.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/un.h>

#include <array>
#include <csignal>
#include <cstring>

#include "sockets.h"
#include "support/faults.h"
#include "support/substitute.h"
#include "threads.h"
#include "vos.h"

using namespace vostest;
using testing::ElementsAre;

namespace {

bool nonBlocking(int fd) { return (fcntl(fd, F_GETFL) & O_NONBLOCK) != 0; }

/* A port of this machine on which no socket listens. */
Address closedPort() {
    Address address;
    close(boundTo(address, SOCK_STREAM));
    return address;
}

/* An address that the loopback interface sends to and that no machine has: no answer ever comes. */
Address unreachable() {
    const Address network{0, 0xC0000200}; /* 192.0.2.0/24 is for examples */
    const Address mask{0, 0xFFFFFF00};
    char loopback[] = "lo";
    rtentry route{};
    memcpy(&route.rt_dst, &network.in, sizeof network.in);
    memcpy(&route.rt_genmask, &mask.in, sizeof mask.in);
    route.rt_flags = RTF_UP;
    route.rt_dev = loopback;
    const int control = socket(AF_INET, SOCK_DGRAM, 0);
    EXPECT_EQ(ioctl(control, SIOCADDRT, &route), 0);
    close(control);
    return Address{80, 0xC0000201};
}

/* Outcomes that a loopback connection does not have. */
int connectInProgress(int, const sockaddr *, socklen_t) {
    errno = EINPROGRESS;
    return -1;
}
int connectAtOnce(int, const sockaddr *, socklen_t) { return 0; }

}  // namespace

TEST(ConnectWithTimeout, AListeningPortIsConnected) {
    const Outcome outcome = run([] {
        Address server;
        listeningOn(server);
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        timeval timeout{5, 0};
        EXPECT_EQ(vosConnectWithTimeout(fd, server.get(), Address::size, &timeout), 0);
        EXPECT_FALSE(nonBlocking(fd)) << "the connection had to be waited for";
        Address peer;
        uint32_t length = Address::size;
        EXPECT_EQ(vosGetpeername(fd, peer.get(), &length), 0);
        const int patient = socket(AF_INET, SOCK_STREAM, 0);
        EXPECT_EQ(vosConnectWithTimeout(patient, server.get(), Address::size, nullptr), 0);
    });
    EXPECT_EQ(outcome.output, "");
}

TEST(ConnectWithTimeout, AConnectionThatIsMadeAtOnceLeavesTheDescriptorNonBlocking) {
    run([] {
        Address server;
        boundTo(server, SOCK_DGRAM);
        const int datagram = socket(AF_INET, SOCK_DGRAM, 0);
        timeval timeout{5, 0};
        EXPECT_EQ(vosConnectWithTimeout(datagram, server.get(), Address::size, &timeout), 0);
        EXPECT_TRUE(nonBlocking(datagram));

        substitute("connect", connectAtOnce);
        listeningOn(server);
        const int stream = socket(AF_INET, SOCK_STREAM, 0);
        EXPECT_EQ(vosConnectWithTimeout(stream, server.get(), Address::size, &timeout), 0);
        EXPECT_TRUE(nonBlocking(stream));
    });
}

TEST(ConnectWithTimeout, AClosedPortFailsAndTheFlagsAreRestored) {
    run([] {
        Address closed = closedPort();
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        timeval timeout{5, 0};
        EXPECT_EQ(vosConnectWithTimeout(fd, closed.get(), Address::size, &timeout), -1);
        EXPECT_FALSE(nonBlocking(fd));
        vosSetNonblocking(fd, 1);
        EXPECT_EQ(vosConnectWithTimeout(fd, closed.get(), Address::size, &timeout), -1);
        EXPECT_TRUE(nonBlocking(fd)) << "it was so before";
    });
}

TEST(ConnectWithTimeout, ARefusalAtOnceLeavesTheDescriptorNonBlocking) {
    run([] {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_un wrong{};
        wrong.sun_family = AF_UNIX;
        timeval timeout{5, 0};
        EXPECT_EQ(vosConnectWithTimeout(fd, reinterpret_cast<sockaddr *>(&wrong), sizeof wrong, &timeout), -1);
        EXPECT_EQ(errno, EAFNOSUPPORT);
        EXPECT_TRUE(nonBlocking(fd));
    });
}

TEST(ConnectWithTimeout, AnUnreachableAddressTimesOutAndLeavesTheDescriptorNonBlocking) {
    const Outcome outcome = run([] {
        Address silent = unreachable();
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        timeval timeout{1, 0};
        expectAbout(Milliseconds(1000),
                    duration([&] { EXPECT_EQ(vosConnectWithTimeout(fd, silent.get(), Address::size, &timeout), -1); }));
        EXPECT_TRUE(nonBlocking(fd));
    });
    EXPECT_EQ(outcome.output, "");
}

TEST(ConnectWithTimeout, ADescriptorOfAnyNumberIsWaitedFor) {
    run([] {
        const rlimit many{4096, 4096};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &many), 0);
        Address server;
        listeningOn(server);
        Address closed = closedPort();
        for (const int fd : {FD_SETSIZE - 1, FD_SETSIZE, FD_SETSIZE + 63, FD_SETSIZE + 64, 4095}) {
            ASSERT_EQ(dup2(socket(AF_INET, SOCK_STREAM, 0), fd), fd);
            timeval timeout{5, 0};
            EXPECT_EQ(vosConnectWithTimeout(fd, server.get(), Address::size, &timeout), 0) << fd;
            EXPECT_FALSE(nonBlocking(fd));
            ASSERT_EQ(dup2(socket(AF_INET, SOCK_STREAM, 0), fd), fd);
            EXPECT_EQ(vosConnectWithTimeout(fd, closed.get(), Address::size, &timeout), -1);
            EXPECT_EQ(errno, ECONNREFUSED);
        }
        EXPECT_EQ(Faults::liveBlocks(), 0);
    });
}

TEST(ConnectWithTimeout, ALargeDescriptorWithoutMemoryForItsSetIsAFailure) {
    run([] {
        const rlimit many{4096, 4096};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &many), 0);
        Address server;
        listeningOn(server);
        ASSERT_EQ(dup2(socket(AF_INET, SOCK_STREAM, 0), 4000), 4000);
        Faults::arm({.call = "calloc"});
        timeval timeout{5, 0};
        EXPECT_EQ(vosConnectWithTimeout(4000, server.get(), Address::size, &timeout), -1);
        EXPECT_EQ(errno, ENOMEM);
        EXPECT_TRUE(Faults::disarm());
        EXPECT_TRUE(nonBlocking(4000));
    });
}

TEST(ConnectWithTimeout, ErrnoTellsWhyItFailed) {
    run([] {
        Address closed = closedPort();
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        timeval timeout{5, 0};
        EXPECT_EQ(vosConnectWithTimeout(fd, closed.get(), Address::size, &timeout), -1);
        EXPECT_EQ(errno, ECONNREFUSED);

        Address silent = unreachable();
        timeval shortly{0, 1000};
        EXPECT_EQ(vosConnectWithTimeout(socket(AF_INET, SOCK_STREAM, 0), silent.get(), Address::size, &shortly), -1);
        EXPECT_EQ(errno, ETIMEDOUT);

        EXPECT_EQ(vosConnectWithTimeout(-1, closed.get(), Address::size, &timeout), -1);
        EXPECT_EQ(errno, EBADF);
    });
}

TEST(ConnectWithTimeout, ASignalHandlerEndsTheWait) {
    run([] {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, nullptr);
        const itimerval again{{0, 50'000}, {0, 50'000}};
        Address silent = unreachable();
        setitimer(ITIMER_REAL, &again, nullptr);
        timeval timeout{60, 0};
        EXPECT_EQ(vosConnectWithTimeout(socket(AF_INET, SOCK_STREAM, 0), silent.get(), Address::size, &timeout), -1);
        EXPECT_EQ(errno, EINTR);
    });
}

TEST(ConnectWithTimeout, ErrnoOfAFailedQueryIsKeptWhenTheLineCannotBePrinted) {
    run([] {
        Address server;
        listeningOn(server);
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        close(STDOUT_FILENO);
        Faults::arm({.call = "getsockopt", .error = ENOBUFS});
        timeval timeout{5, 0};
        EXPECT_EQ(vosConnectWithTimeout(fd, server.get(), Address::size, &timeout), -1);
        EXPECT_EQ(errno, ENOBUFS);
        EXPECT_TRUE(Faults::disarm());
    });
}

TEST(ConnectWithTimeout, EveryFailingCallIsAFailureAndOnlyTheQueryIsPrinted) {
    static Address server;
    static int fd = -1;
    const auto prepare = [] {
        listeningOn(server);
        fd = socket(AF_INET, SOCK_STREAM, 0);
    };
    const auto attempts = failEachCall(prepare, [] {
        timeval timeout{5, 0};
        const int32_t result = vosConnectWithTimeout(fd, server.get(), Address::size, &timeout);
        return result * 10L + (nonBlocking(fd) ? 1 : 0);
    });
    expectNothingKept(attempts);
    ASSERT_EQ(attempts.size(), 6U);
    EXPECT_EQ(at(attempts, "fcntl#1").result, -10);
    EXPECT_EQ(at(attempts, "fcntl#2").result, -10) << "a connect that blocks would not end in time";
    EXPECT_EQ(at(attempts, "connect#1").result, -9);
    EXPECT_EQ(at(attempts, "select#1").result, -9);
    EXPECT_EQ(at(attempts, "getsockopt#1").result, -9);
    EXPECT_EQ(at(attempts, "fcntl#3").result, 1);
    for (const Attempt &each : attempts)
        EXPECT_EQ(each.outcome.output,
                  each.point.call == "getsockopt" ? "vosConnectWithTimeout:getsockopt SOL_SOCKET SO_ERROR failed." : "")
            << describe(each.point);
}

TEST(ConnectWithTimeout, TheStepsComeInTheirOrder) {
    run([] {
        substitute("connect", connectInProgress);
        std::array<int, 2> pair{};
        socketpair(AF_UNIX, SOCK_STREAM, 0, pair.data());
        timeval timeout{5, 0};
        EXPECT_THAT(Faults::record([&] { EXPECT_EQ(vosConnectWithTimeout(pair[0], nullptr, 0, &timeout), 0); }),
                    ElementsAre("fcntl", "fcntl", "select", "getsockopt", "fcntl"));
    });
}
