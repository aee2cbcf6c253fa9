/* SPDX-License-Identifier: MIT */
#include <dirent.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <array>
#include <thread>

#include "peer.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string pathOf(const char *name) {
    std::array<char, 128> path{};
    EXPECT_EQ(vosMsgNLChangePath(name, path.data()), VOS_OK);
    return path.data();
}

std::string localFile() {
    std::array<char, 128> path{};
    EXPECT_EQ(vosMsgGetLocalFile(path.data(), path.size()), VOS_OK);
    return path.data();
}

timeval timeout(int fd, int option) {
    timeval value{-1, -1};
    socklen_t length = sizeof value;
    getsockopt(fd, SOL_SOCKET, option, &value, &length);
    return value;
}

int bufferOf(int fd, int option) {
    int value = 0;
    socklen_t length = sizeof value;
    getsockopt(fd, SOL_SOCKET, option, &value, &length);
    return value;
}

void expectTimeouts(uint32_t ms, long seconds, long microseconds) {
    const int fd = vosMsgLocalSocket(ms);
    ASSERT_GE(fd, 0);
    for (const int option : {SO_SNDTIMEO, SO_RCVTIMEO}) {
        EXPECT_EQ(timeout(fd, option).tv_sec, seconds);
        EXPECT_EQ(timeout(fd, option).tv_usec, microseconds);
    }
    close(fd);
}

}  // namespace

TEST(Address, ThePathHoldsTheNameAfterItsLastSlash) {
    run([] {
        EXPECT_EQ(pathOf("abc/def"), "/tmp/vos/def");
        EXPECT_EQ(pathOf("/usr/bin/app"), "/tmp/vos/app");
        EXPECT_EQ(pathOf("app"), "/tmp/vos/app");
        EXPECT_EQ(pathOf("dir/"), "/tmp/vos/");
        EXPECT_EQ(pathOf(""), "/tmp/vos/");
    });
}

TEST(Address, WithTheHighFlagANameWithADirectoryHasTheHighPath) {
    run([] {
        Peer high{"/tmp/vos/defHigh"};
        char text[5] = "ping";
        EXPECT_EQ(vosMsgSend("abc/def", text, 4, 1, nullptr, 3000, 1), VOS_OK);
        EXPECT_EQ(high.receive().textAt(32, 4), "ping");
    });
}

TEST(Address, APathIsNeverWrittenPastItsBuffer) {
    run([] {
        std::array<char, 130> path;
        path.fill('#');
        EXPECT_EQ(vosMsgNLChangePath(std::string(500, 'n').c_str(), path.data()), VOS_OK);
        EXPECT_EQ(strlen(path.data()), 127u);
        EXPECT_EQ(path[128], '#');
        path.fill('#');
        EXPECT_EQ(vosMsgGetLocalFile(path.data(), 12), VOS_OK);
        EXPECT_STREQ(path.data(), "/tmp/vos/cl");
        EXPECT_EQ(path[12], '#');
        path.fill('#');
        EXPECT_EQ(vosMsgGetLocalFile(path.data(), 0), VOS_OK);
        EXPECT_EQ(vosMsgGetLocalFile(path.data(), -1), VOS_OK);
        EXPECT_EQ(path[0], '#');
    });
}

TEST(Address, TheRequestersPathHoldsProcessThreadAndNumber) {
    run([] {
        const std::string stem = "/tmp/vos/clientp" + std::to_string(getpid()) + "t" +
                                 std::to_string(static_cast<unsigned long>(pthread_self())) + "v";
        EXPECT_EQ(localFile(), stem + "1");
        EXPECT_EQ(localFile(), stem + "2");
    });
}

TEST(Address, After127ComesOneAgainAndNeverZero) {
    run([] {
        for (int i = 1; i <= 126; ++i) localFile();
        EXPECT_TRUE(localFile().ends_with("v127"));
        EXPECT_TRUE(localFile().ends_with("v1"));
    });
}

TEST(Address, TwoThreadsHaveDifferentPaths) {
    run([] {
        const std::string mine = localFile();
        std::string other;
        std::thread([&] { other = localFile(); }).join();
        EXPECT_NE(mine.substr(0, mine.rfind('v')), other.substr(0, other.rfind('v')));
    });
}

namespace {

/* The path of a child that shares no memory. It is made by the system call itself, so that no library is involved. */
std::string pathOfAChild(pid_t &child) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    child = static_cast<pid_t>(syscall(SYS_clone, SIGCHLD, nullptr, nullptr, nullptr, nullptr));
    if (child == 0) {
        const std::string path = localFile();
        _exit(write(ends[1], path.data(), path.size()) == static_cast<ssize_t>(path.size()) ? 0 : 1);
    }
    close(ends[1]);
    std::array<char, 128> path{};
    EXPECT_GT(read(ends[0], path.data(), path.size() - 1), 0);
    close(ends[0]);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    return path.data();
}

void expectOwnPaths() {
    pid_t child = -1;
    EXPECT_TRUE(localFile().starts_with("/tmp/vos/clientp" + std::to_string(getpid()) + "t"));
    const std::string path = pathOfAChild(child);
    EXPECT_TRUE(path.starts_with("/tmp/vos/clientp" + std::to_string(child) + "t")) << path;
    EXPECT_TRUE(localFile().starts_with("/tmp/vos/clientp" + std::to_string(getpid()) + "t"));
}

}  // namespace

TEST(Address, AChildOfAnyKindOfForkHasPathsOfItsOwn) {
    run([] { expectOwnPaths(); });
}

TEST(Address, AChildOfVforkGetsItsParentsPaths) {
    run([] {
        static std::array<char, 128> path;
        localFile();
        const pid_t child = vfork();
        if (child == 0) {
            vosMsgGetLocalFile(path.data(), path.size());
            _exit(0);
        }
        EXPECT_EQ(waitpid(child, nullptr, 0), child);
        EXPECT_TRUE(std::string(path.data()).starts_with("/tmp/vos/clientp" + std::to_string(getpid()) + "t"));
    });
}

TEST(Address, TheKernelIsAskedOnlyOnceForTheProcessId) {
    run([] {
        EXPECT_THAT(Faults::record([] { localFile(); }), ElementsAre("madvise", "madvise"));
        EXPECT_THAT(Faults::record([] { localFile(); }), IsEmpty());
        std::thread([] { EXPECT_THAT(Faults::record([] { localFile(); }), IsEmpty()); }).join();
    });
}

TEST(Address, WhenThePageCannotBeClearedInChildrenTheKernelIsAskedForEachPath) {
    run([] {
        errno = ENOTTY;
        Faults::arm({.call = "madvise", .occurrence = 2, .error = EINVAL});
        localFile();
        EXPECT_TRUE(Faults::disarm());
        EXPECT_EQ(errno, ENOTTY);
        EXPECT_THAT(Faults::record([] { localFile(); }), IsEmpty());
        expectOwnPaths();
    });
}

TEST(Address, TheLengthCountsFamilyPathAndTerminator) {
    run([] {
        sockaddr_un address;
        memset(&address, 0xFF, sizeof address);
        uint32_t length = 0;
        EXPECT_EQ(vosMsgLocalAddrInit("/tmp/vos/app", &address, &length), VOS_OK);
        EXPECT_EQ(length, 15u);
        EXPECT_EQ(address.sun_family, AF_UNIX);
        EXPECT_STREQ(address.sun_path, "/tmp/vos/app");
        EXPECT_EQ(address.sun_path[107], '\0');
    });
}

TEST(Address, APathLongerThanTheFieldIsCutAndItsFullLengthIsReturned) {
    run([] {
        struct {
            sockaddr_un address;
            uint8_t guard[32];
        } room;
        memset(&room, 0x55, sizeof room);
        uint32_t length = 0;
        EXPECT_EQ(vosMsgLocalAddrInit(std::string(120, 'p').c_str(), &room.address, &length), VOS_OK);
        EXPECT_EQ(length, 123u);
        EXPECT_EQ(room.address.sun_path[107], 'p');
        EXPECT_THAT(room.guard, testing::Each(0x55));
    });
}

TEST(Address, NullPointersAreRefused) {
    const Outcome outcome = run([] {
        char path[128];
        sockaddr_un address;
        uint32_t length = 0;
        EXPECT_EQ(vosMsgNLChangePath(nullptr, path), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgNLChangePath("app", nullptr), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgGetLocalFile(nullptr, 128), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgLocalAddrInit(nullptr, &address, &length), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgLocalAddrInit("/p", nullptr, &length), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgLocalAddrInit("/p", &address, nullptr), VOS_ERR_PARAM);
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosMsgNLChangePath:parameter error.", "vosMsgNLChangePath:parameter error.",
                            "vosMsgGetLocalFile:parameter error.", "vosMsgLocalAddrInit:parameter error.",
                            "vosMsgLocalAddrInit:parameter error.", "vosMsgLocalAddrInit:parameter error."));
}

TEST(LocalSocket, TimeOutsAreSecondsAndMicrosecondsOfTheMilliseconds) {
    run([] {
        expectTimeouts(3000, 3, 0);
        expectTimeouts(90000, 90, 0);
        expectTimeouts(0, 0, 0);
        const int fd = vosMsgLocalSocket(0xFFFFFFFF);
        EXPECT_EQ(timeout(fd, SO_RCVTIMEO).tv_sec, 4294967);
        close(fd);
        /* the kernel rounds them to its ticks, so the fraction is one that is a whole number of ticks */
        expectTimeouts(1500, 1, 500000);
    });
}

TEST(LocalSocket, WithTheNoTimeoutsBitThereAreNone) {
    run([] {
        vosDebugConfig(VOS_DEBUG_NO_TIMEOUTS);
        expectTimeouts(3000, 0, 0);
    });
}

TEST(LocalSocket, AFailedSocketIsMinusOneWithoutALineAndFailedTimeOutsAreLogged) {
    const auto attempts = failEachCall([] {},
                                       [] {
                                           const int fd = vosMsgLocalSocket(3000);
                                           if (fd >= 0) close(fd);
                                           return fd >= 0 ? 0 : fd;
                                       });
    expectNothingKept(attempts);
    ASSERT_EQ(attempts.size(), 3u);
    EXPECT_EQ(at(attempts, "socket#1").result, -1);
    EXPECT_THAT(at(attempts, "socket#1").messages, IsEmpty());
    EXPECT_EQ(at(attempts, "setsockopt#1").result, 0);
    EXPECT_THAT(at(attempts, "setsockopt#1").messages,
                ElementsAre(errnoLine("vosMsgLocalSocket:setsockopt SO_SNDTIMEO", EIO)));
    EXPECT_EQ(at(attempts, "setsockopt#2").result, 0);
    EXPECT_THAT(at(attempts, "setsockopt#2").messages,
                ElementsAre(errnoLine("vosMsgLocalSocket:setsockopt SO_RCVTIMEO", EIO)));
}

namespace {

/* Tunes a socket of the test and lists the lines that are right on this machine. */
std::string shortLine(const char *option, int asked, int granted) {
    return std::string("vosMsgSocketOptmize: ") + option + " set " + std::to_string(asked) + " but only " +
           std::to_string(granted) + ", need to just KERNEL_NET_MEM_MAX value.";
}

long tuneOne(int32_t verify) {
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    const int32_t result = vosMsgSocketOptmize(fd, verify);
    close(fd);
    return result;
}

}  // namespace

TEST(SocketTuning, ASizeThatTheKernelLimitsIsLoggedWhenVerified) {
    const Peer probe;
    const int send = 4194304;
    const int receive = 6291456;
    setsockopt(probe.fd(), SOL_SOCKET, SO_SNDBUF, &send, sizeof send);
    setsockopt(probe.fd(), SOL_SOCKET, SO_RCVBUF, &receive, sizeof receive);
    std::vector<std::string> expected;
    if (bufferOf(probe.fd(), SO_SNDBUF) != 2 * send)
        expected.push_back(shortLine("SO_SNDBUF", send, bufferOf(probe.fd(), SO_SNDBUF)));
    if (bufferOf(probe.fd(), SO_RCVBUF) != 2 * receive)
        expected.push_back(shortLine("SO_RCVBUF", receive, bufferOf(probe.fd(), SO_RCVBUF)));
    const Outcome outcome = run([] { EXPECT_EQ(tuneOne(1), VOS_OK); });
    EXPECT_EQ(outcome.messages(), expected);
    EXPECT_THAT(run([] { EXPECT_EQ(tuneOne(0), VOS_OK); }).messages(), IsEmpty());
}

TEST(SocketTuning, ASendBufferBelowTheRequestIsLoggedWithBothSizes) {
    /* The socket keeps the kernel's default, which is below 4 MiB, as with a low limit. */
    const Attempt attempt = failCall(
        {.call = "setsockopt", .occurrence = 1}, [] {}, [] { return tuneOne(1); });
    EXPECT_EQ(attempt.result, VOS_OK);
    ASSERT_GE(attempt.messages.size(), 2u);
    EXPECT_EQ(attempt.messages[0], "vosMsgSocketOptmize:SO_SNDBUF failed.");
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    EXPECT_EQ(attempt.messages[1], shortLine("SO_SNDBUF", 4194304, bufferOf(fd, SO_SNDBUF)));
    close(fd);
}

TEST(SocketTuning, EveryFailureIsLoggedAndIgnored) {
    const auto attempts = failEachCall(freshWorld, [] { return tuneOne(1); });
    expectNothingKept(attempts);
    ASSERT_EQ(attempts.size(), 4u);
    for (const Attempt &each : attempts) EXPECT_EQ(each.result, VOS_OK);
    EXPECT_THAT(at(attempts, "setsockopt#1").messages, testing::Contains("vosMsgSocketOptmize:SO_SNDBUF failed."));
    EXPECT_THAT(at(attempts, "getsockopt#1").messages,
                testing::Contains("vosMsgSocketOptmize: getsockopt SO_SNDBUF failed."));
    EXPECT_THAT(at(attempts, "setsockopt#2").messages, testing::Contains("vosMsgSocketOptmize:SO_RCVBUF failed."));
    EXPECT_THAT(at(attempts, "getsockopt#2").messages,
                testing::Contains("vosMsgSocketOptmize: getsockopt SO_RCVBUF failed."));
}
