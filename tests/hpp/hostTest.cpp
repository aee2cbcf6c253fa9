/* SPDX-License-Identifier: MIT */
/* vos.hpp: connections, the clock, the host, shell commands. */
#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/un.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "../vosMsg/peer.h"
#include "vos.hpp"

using namespace std::chrono_literals;
using namespace vostest;

namespace {

std::size_t openDescriptors() {
    std::size_t count = 0;
    for (int fd = 0; fd < 256; ++fd)
        if (fcntl(fd, F_GETFD) != -1) ++count;
    return count;
}

/* Listens on a port of the loopback that the kernel chooses. */
struct Listener {
    vos::unique_fd socket{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    sockaddr_in address = vos::ipv4_address("127.0.0.1", 0).value();

    explicit Listener(int backlog = 8) {
        socklen_t length = sizeof address;
        EXPECT_EQ(bind(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(listen(socket.get(), backlog), 0);
        EXPECT_EQ(getsockname(socket.get(), reinterpret_cast<sockaddr *>(&address), &length), 0);
    }
};

TEST(CppConnection, IsBlockingOwnedAndClosedInStartedPrograms) {
    const Listener listener;
    for (const vos::timeout wait : {vos::timeout{20s}, vos::forever}) {
        const std::size_t before = openDescriptors();
        {
            const auto connected = vos::connected_socket(SOCK_STREAM, listener.address, wait);
            ASSERT_TRUE(connected) << connected.error_number();
            EXPECT_EQ(fcntl(connected->get(), F_GETFL) & O_NONBLOCK, 0);
            EXPECT_EQ(fcntl(connected->get(), F_GETFD), FD_CLOEXEC);
            EXPECT_EQ(openDescriptors(), before + 1);
        }
        EXPECT_EQ(openDescriptors(), before);
    }
}

TEST(CppConnection, ALocalOneIsBlockingThoughItWasThereAtOnce) {
    const vos::unique_fd server{socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)};
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, "/tmp/cpp-connection");
    ASSERT_EQ(bind(server.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(server.get(), 1), 0);
    const auto connected = vos::connected_socket(SOCK_SEQPACKET, address, vos::no_wait);
    unlink(address.sun_path);
    ASSERT_TRUE(connected) << connected.error_number();
    EXPECT_EQ(fcntl(connected->get(), F_GETFL) & O_NONBLOCK, 0);
}

TEST(CppConnection, AFailureHasItsReasonAndLeavesNothingOpen) {
    const std::size_t before = openDescriptors();
    sockaddr_in nobody{};
    {
        const Listener gone;
        nobody = gone.address;
    }
    const auto refused = vos::connected_socket(SOCK_STREAM, nobody, 20s);
    EXPECT_EQ(refused.code(), VOS_ERROR);
    EXPECT_EQ(refused.error_number(), ECONNREFUSED);
    sockaddr_in senseless{};
    senseless.sin_family = 4711;
    EXPECT_EQ(vos::connected_socket(SOCK_STREAM, senseless, 1s).error_number(), EAFNOSUPPORT);
    EXPECT_EQ(openDescriptors(), before);
}

TEST(CppConnection, TheEndOfTheTimeIsATimeOut) {
    /* A queue that is full makes no connection. How many fit before is the kernel's affair. */
    const Listener full{0};
    std::vector<vos::unique_fd> waiting;
    for (int i = 0; i < 64; ++i) {
        auto next = vos::connected_socket(SOCK_STREAM, full.address, 30ms);
        if (next) {
            waiting.push_back(std::move(*next));
            continue;
        }
        EXPECT_TRUE(next.timed_out());
        EXPECT_EQ(next.error_number(), ETIMEDOUT);
        return;
    }
    ADD_FAILURE() << "the queue is never full";
}

TEST(CppAddress, OfAHostIsReadyToConnect) {
    const auto found = vos::ipv4_address("192.0.2.1", 80);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->sin_family, AF_INET);
    EXPECT_EQ(ntohs(found->sin_port), 80);
    EXPECT_EQ(ntohl(found->sin_addr.s_addr), 0xC0000201u);
    EXPECT_EQ(vos::ipv4_address("no.such.host.invalid", 80).code(), VOS_ERROR);
}

TEST(CppClock, CountsFromTheMachinesStart) {
    const auto before = vos::uptime().value();
    const auto now = vos::uptime_clock::now();
    const auto after = vos::uptime().value();
    EXPECT_LE(before, now.time_since_epoch());
    EXPECT_LE(now.time_since_epoch(), after);
    timespec boot{};
    clock_gettime(CLOCK_BOOTTIME, &boot);
    EXPECT_GE(std::chrono::seconds{boot.tv_sec} + 1s, after);
    EXPECT_TRUE(eventually([&] { return vos::uptime_clock::now() > now; }));
}

TEST(CppHost, HasANameAndFigures) {
    char expected[65] = "";
    ASSERT_EQ(gethostname(expected, sizeof expected), 0);
    EXPECT_EQ(vos::host::name().value(), expected);
    EXPECT_EQ(vos::host::set_name(std::string(65, 'x')).error_number(), EINVAL);
    EXPECT_EQ(vos::host::name().value(), expected);
    EXPECT_GE(vos::host::memory_total(), vos::host::memory_free());
}

TEST(CppShell, ReturnsHowTheCommandEnded) {
    EXPECT_TRUE(run([] {
                    EXPECT_EQ(vos::shell::run("true").value(), 0);
                    EXPECT_EQ(vos::shell::run(std::string{"exit 3"}).value(), 3);
                    EXPECT_EQ(vos::shell::run("exit 255").value(), 255);
                    EXPECT_EQ(vos::shell::run("/no/such/command 2>/dev/null").value(), 127);
                    EXPECT_EQ(vos::shell::run("kill -TERM $$").value(), 128 + SIGTERM);
                    EXPECT_EQ(vos::shell::run("exit 2", vos::shell::terminal::interactive).value(), 2);
                }).exited(0));
}

TEST(CppShell, ACommandThatIsStartedIsNotWaitedFor) {
    EXPECT_TRUE(run([] {
                    ASSERT_EQ(mkfifo("/tmp/cpp-shell", 0600), 0);
                    EXPECT_TRUE(vos::shell::start("echo done >/tmp/cpp-shell")); /* waits for a reader */
                    std::ifstream fifo("/tmp/cpp-shell");
                    std::string word;
                    fifo >> word;
                    EXPECT_EQ(word, "done");
                    unlink("/tmp/cpp-shell");
                }).exited(0));
}

}  // namespace
