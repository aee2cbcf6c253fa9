/* SPDX-License-Identifier: MIT */
#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cstring>
#include <thread>

#include "support/faults.h"
#include "support/substitute.h"
#include "threads.h"
#include "vos.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

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

bool nonBlocking(int fd) { return (fcntl(fd, F_GETFL) & O_NONBLOCK) != 0; }

/* A socket of that type, bound to a free port of the loopback interface. */
int boundTo(Address &address, int type) {
    const int fd = vosSocket(AF_INET, type, 0);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(vosBind(fd, address.get(), Address::size), 0);
    uint32_t length = Address::size;
    EXPECT_EQ(vosGetsockname(fd, address.get(), &length), 0);
    EXPECT_EQ(length, Address::size);
    return fd;
}

int listeningOn(Address &address) {
    const int fd = boundTo(address, SOCK_STREAM);
    EXPECT_EQ(vosListen(fd, 4), 0);
    return fd;
}

/* A port of this machine where nobody listens. */
Address closedPort() {
    Address address;
    close(boundTo(address, SOCK_STREAM));
    return address;
}

/* A listener whose queue is full drops what comes next without an answer, as an address out of reach does. */
void connectNowhere(int fd, timeval *timeout, Milliseconds wanted) {
    Address listener;
    const int full = boundTo(listener, SOCK_STREAM);
    ASSERT_EQ(vosListen(full, 0), 0);
    std::array<int, 2> waiting{};
    for (int &each : waiting) {
        each = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
        connect(each, listener.get(), Address::size);
    }
    expectAbout(wanted,
                duration([&] { EXPECT_EQ(vosConnectWithTimeout(fd, listener.get(), Address::size, timeout), -1); }));
    for (const int each : waiting) close(each);
    close(full);
}

/* Outcomes that a loopback connection does not have. */
int connectInProgress(int, const sockaddr *, socklen_t) {
    errno = EINPROGRESS;
    return -1;
}
int connectAtOnce(int, const sockaddr *, socklen_t) { return 0; }

/* A kernel that appends extension data to every datagram. */
int flagsSeen = 0;
socklen_t nameLengthSeen = 0;
ssize_t recvmsgOfTheDevice(int /*fd*/, msghdr *header, int flags) {
    flagsSeen = flags;
    nameLengthSeen = header->msg_namelen;
    EXPECT_EQ(header->msg_control, nullptr);
    EXPECT_EQ(header->msg_controllen, 0U);
    EXPECT_EQ(header->msg_iovlen, 5U);
    unsigned char next = 1;
    ssize_t length = 0;
    for (std::size_t part = 0; part < header->msg_iovlen; ++part)
        for (std::size_t i = 0; i < header->msg_iov[part].iov_len; ++i, ++length)
            static_cast<unsigned char *>(header->msg_iov[part].iov_base)[i] = next++;
    return length;
}

}  // namespace

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

TEST(Socket, LengthsAndCountsWithoutSenseAreInvalid) {
    run([] {
        const auto calls = Faults::record([] {
            EXPECT_EQ(vosSend(1, "x", -1, 0), -1);
            EXPECT_EQ(errno, EINVAL);
            errno = 0;
            fd_set none;
            FD_ZERO(&none);
            EXPECT_EQ(vosSelect(FD_SETSIZE + 1, &none, nullptr, nullptr, nullptr), -1);
            EXPECT_EQ(errno, EINVAL);
        });
        EXPECT_THAT(calls, IsEmpty());
        timeval now{0, 0};
        EXPECT_EQ(vosSelect(FD_SETSIZE, nullptr, nullptr, nullptr, &now), 0);
        EXPECT_EQ(vosSelect(-1, nullptr, nullptr, nullptr, &now), -1);
    });
}

TEST(Socket, EveryFailureIsTheSystemLibrarys) {
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

TEST(ConnectWithTimeout, AConnectionThatStandsAtOnceLeavesTheDescriptorNonBlocking) {
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
        Address nobody = closedPort();
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        timeval timeout{5, 0};
        EXPECT_EQ(vosConnectWithTimeout(fd, nobody.get(), Address::size, &timeout), -1);
        EXPECT_FALSE(nonBlocking(fd));
        vosSetNonblocking(fd, 1);
        EXPECT_EQ(vosConnectWithTimeout(fd, nobody.get(), Address::size, &timeout), -1);
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

TEST(ConnectWithTimeout, WithoutAnAnswerItEndsAfterItsTimeNonBlocking) {
    run([] {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        timeval timeout{1, 0};
        connectNowhere(fd, &timeout, Milliseconds(1000));
        EXPECT_TRUE(nonBlocking(fd));
    });
}

TEST(ConnectWithTimeout, ADescriptorThatNoSetHoldsIsNotWaitedFor) {
    run([] {
        const rlimit many{4096, 4096};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &many), 0);
        Address server;
        listeningOn(server);
        for (const int fd : {FD_SETSIZE - 1, FD_SETSIZE, 4095}) {
            ASSERT_EQ(dup2(socket(AF_INET, SOCK_STREAM, 0), fd), fd);
            timeval timeout{5, 0};
            const bool fits = fd < FD_SETSIZE;
            EXPECT_EQ(vosConnectWithTimeout(fd, server.get(), Address::size, &timeout), fits ? 0 : -1);
            EXPECT_EQ(nonBlocking(fd), !fits);
        }
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

TEST(ReceiveExtension, AKernelThatAppendsNothingLeavesTheWordsOne) {
    run([] {
        Address a;
        Address b;
        const int receiver = boundTo(a, SOCK_DGRAM);
        const int sender = boundTo(b, SOCK_DGRAM);
        ASSERT_EQ(vosSendto(sender, "0123456789", 10, 0, a.get(), Address::size), 10);
        char payload[100];
        memset(payload, '-', sizeof payload);
        VOS_RECV_EXT extension;
        memset(&extension, 0xEE, sizeof extension);
        Address from;
        uint32_t length = 12345;
        EXPECT_EQ(vosRecvfromExt(receiver, payload, sizeof payload, 0, from.get(), &length, &extension), 10);
        EXPECT_EQ(std::string(payload, 11), "0123456789-");
        EXPECT_EQ(extension.ulWord1, 1U);
        EXPECT_EQ(extension.ulWord2, 1U);
        EXPECT_EQ(extension.ulWord3, 1U);
        EXPECT_THAT(extension.aucData, testing::Each(0));
        EXPECT_EQ(from.in.sin_port, b.in.sin_port);
        EXPECT_EQ(length, 12345U) << "neither read nor written";
    });
}

TEST(ReceiveExtension, ADatagramThatIsLongerThanTheBufferRunsIntoTheExtension) {
    run([] {
        Address a;
        const int receiver = boundTo(a, SOCK_DGRAM);
        const int sender = socket(AF_INET, SOCK_DGRAM, 0);
        char sent[60];
        for (std::size_t i = 0; i < sizeof sent; ++i) sent[i] = static_cast<char>(i);
        ASSERT_EQ(vosSendto(sender, sent, sizeof sent, 0, a.get(), Address::size), 60);
        char payload[10];
        VOS_RECV_EXT extension;
        EXPECT_EQ(vosRecvfromExt(receiver, payload, sizeof payload, 0, nullptr, nullptr, &extension), 50);
        EXPECT_EQ(memcmp(payload, sent, 10), 0);
        EXPECT_EQ(memcmp(&extension, sent + 10, 40), 0);
    });
}

TEST(ReceiveExtension, TheDevicesKernelIsAskedAndItsBytesArePassedOn) {
    run([] {
        substitute("recvmsg", recvmsgOfTheDevice);
        char payload[4];
        VOS_RECV_EXT extension;
        Address from;
        EXPECT_EQ(vosRecvfromExt(0, payload, sizeof payload, MSG_DONTWAIT, from.get(), nullptr, &extension), 44);
        EXPECT_EQ(flagsSeen, MSG_DONTWAIT | 0x0F000000);
        EXPECT_EQ(nameLengthSeen, 16U);
        unsigned char expected[44];
        for (std::size_t i = 0; i < sizeof expected; ++i) expected[i] = static_cast<unsigned char>(i + 1);
        EXPECT_EQ(memcmp(payload, expected, 4), 0);
        EXPECT_EQ(memcmp(&extension, expected + 4, 40), 0);
        vosRecvfromExt(0, payload, sizeof payload, 0x0F000000 | MSG_PEEK, nullptr, nullptr, &extension);
        EXPECT_EQ(flagsSeen, MSG_PEEK | 0x0F000000);
    });
}

TEST(ReceiveExtension, WithoutADatagramTheRecordIsNotTouched) {
    const Outcome outcome = run([] {
        Address a;
        const int receiver = boundTo(a, SOCK_DGRAM);
        VOS_RECV_EXT extension;
        memset(&extension, 0xEE, sizeof extension);
        char payload[10];
        EXPECT_EQ(vosRecvfromExt(receiver, payload, 10, MSG_DONTWAIT, nullptr, nullptr, &extension), -1);
        EXPECT_EQ(errno, EAGAIN);
        const int sender = socket(AF_INET, SOCK_DGRAM, 0);
        ASSERT_EQ(vosSendto(sender, "", 0, 0, a.get(), Address::size), 0);
        EXPECT_EQ(vosRecvfromExt(receiver, payload, 10, 0, nullptr, nullptr, &extension), 0);
        EXPECT_EQ(extension.ulWord1, 0xEEEEEEEEU);
        EXPECT_EQ(extension.aucData[27], 0xEE);
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(ReceiveExtension, NullIsRefused) {
    const Outcome outcome = run([] {
        char payload[10];
        EXPECT_EQ(vosRecvfromExt(0, payload, 10, 0, nullptr, nullptr, nullptr), VOS_ERR_PARAM);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosRecvfromExt:parameter error."));
}
