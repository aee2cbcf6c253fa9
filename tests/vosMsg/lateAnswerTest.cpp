/* SPDX-License-Identifier: MIT */
/* Which answers reach which request: a path of a requester is used again later, and a late answer may come then. */
#include <sys/wait.h>

#include <array>
#include <thread>

#include "peer.h"
#include "support/substitute.h"

using namespace vostest;

/* A forked child that ends has its parent's other threads in the thread sanitizer's list, but not in itself. */
extern "C" const char *__tsan_default_options() { return "allocator_may_return_null=1:report_thread_leaks=0"; }

namespace {

std::string takePath() {
    std::array<char, 128> path{};
    EXPECT_EQ(vosMsgGetLocalFile(path.data(), path.size()), VOS_OK);
    return path.data();
}

int takeNumber() {
    const std::string path = takePath();
    return std::stoi(path.substr(path.rfind('v') + 1));
}

}  // namespace

TEST(LateAnswer, ThreadsTakeEachNumberEquallyOften) {
    run([] {
        constexpr int kThreads = 4;
        constexpr int kRounds = 200;
        static std::array<std::array<int, 128>, kThreads> taken;
        std::vector<std::thread> threads;
        for (auto &mine : taken)
            threads.emplace_back([&mine] {
                for (int i = 0; i < 127 * kRounds; ++i) ++mine.at(static_cast<std::size_t>(takeNumber()));
            });
        for (std::thread &each : threads) each.join();
        EXPECT_EQ(taken[0][0], 0);
        for (std::size_t number = 1; number <= 127; ++number) {
            int sum = 0;
            for (const auto &mine : taken) sum += mine.at(number);
            EXPECT_EQ(sum, kThreads * kRounds) << number;
        }
    });
}

TEST(LateAnswer, APathReturnsAfter126OthersWhicheverThreadTookThem) {
    run([] {
        const std::string first = takePath();
        std::thread([] {
            for (int i = 0; i < 126; ++i) takePath();
        }).join();
        EXPECT_EQ(takePath(), first);
    });
}

TEST(LateAnswer, OneToAnEarlierRequestOfTheSamePathIsTakenForTheAnswer) {
    run([] {
        freshWorld();
        Peer receiver{"/tmp/vos/B"};
        char text[] = "req1";
        uint32_t code = 0;
        vosDebugConfig(0);
        EXPECT_EQ(vosMsgSend("B", text, 4, 0, &code, 20, 0), VOS_ERROR);
        receiver.receive();
        for (int i = 0; i < 126; ++i) takePath();
        std::thread other([&] {
            const std::string first = receiver.sender;
            receiver.receive();
            EXPECT_EQ(receiver.sender, first);
            EXPECT_TRUE(receiver.send(first, message({.retCode = 1, .length = 4}, "late")));
        });
        EXPECT_EQ(vosMsgSend("B", text, 4, 0, &code, 20000, 0), VOS_OK);
        EXPECT_STREQ(text, "late");
        other.join();
    });
}

TEST(LateAnswer, OneToARemovedPathReachesNoProcess) {
    run([] {
        freshWorld();
        Peer receiver{"/tmp/vos/B"};
        char text[] = "req1";
        uint32_t code = 0;
        vosDebugConfig(0);
        EXPECT_EQ(vosMsgSend("B", text, 4, 0, &code, 20, 0), VOS_ERROR);
        receiver.receive();
        EXPECT_FALSE(receiver.send(receiver.sender, message({.retCode = 1, .length = 4}, "late")));
        EXPECT_EQ(errno, ENOENT);
    });
}

namespace {

/* Another process sends something between the requester's bind and its connect. */
int connectLate(int fd, const sockaddr *to, socklen_t length) {
    sockaddr_un own{};
    socklen_t ownLength = sizeof own;
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr *>(&own), &ownLength), 0);
    EXPECT_TRUE(Peer{}.send(own.sun_path, message({.retCode = 666, .length = 4}, "EVIL")));
    return connect(fd, to, length);
}

}  // namespace

TEST(LateAnswer, ADatagramThatComesBetweenBindAndConnectIsTakenForTheAnswer) {
    run([] {
        freshWorld();
        const Peer receiver{"/tmp/vos/B"};
        substitute("connect", connectLate);
        char text[] = "ping";
        uint32_t code = 0;
        EXPECT_EQ(vosMsgSend("B", text, 4, 0, &code, 20000, 0), VOS_OK);
        EXPECT_EQ(code, 666u);
    });
}

TEST(LateAnswer, AConnectedRequesterReceivesNothingFromOthers) {
    run([] {
        freshWorld();
        Peer receiver{"/tmp/vos/B"};
        std::thread other([&] {
            receiver.receive();
            EXPECT_FALSE(Peer{"/tmp/vos/other"}.send(receiver.sender, message({.retCode = 666})));
            EXPECT_EQ(errno, EPERM);
            EXPECT_TRUE(receiver.send(receiver.sender, message({.retCode = 7})));
        });
        char text[] = "ping";
        uint32_t code = 0;
        EXPECT_EQ(vosMsgSend("B", text, 4, 0, &code, 20000, 0), VOS_OK);
        EXPECT_EQ(code, 7u);
        other.join();
    });
}

namespace {

/* Sends numbers to an echo server; each must come back. */
void askTimes(int count, int first) {
    for (int i = 0; i < count; ++i) {
        int number = first + i;
        uint32_t code = 0;
        EXPECT_EQ(vosMsgSend("echo", &number, sizeof number, 0, &code, 20000, 0), VOS_OK);
        EXPECT_EQ(number, first + i);
        EXPECT_EQ(code, static_cast<uint32_t>(first + i));
    }
}

void echo() {
    openChannel("echo");
    vosDebugConfig(0);
    ready();
    for (;;) {
        int number = 0;
        VOS_MSG_PEER peer;
        if (vosMsgRecv(0, &number, sizeof number, 0xFFFFFFFF, &peer) < 0) continue;
        vosMsgResp(0, static_cast<uint32_t>(number), &number, sizeof number, &peer);
    }
}

}  // namespace

TEST(LateAnswer, ThreadsAndForkedChildrenGetTheirOwnAnswers) {
    freshWorld();
    Process server = start(echo);
    server.awaitReady();
    run([] {
        vosDebugConfig(0);
        std::vector<std::thread> threads;
        for (int t = 1; t <= 3; ++t) threads.emplace_back([t] { askTimes(100, t * 1000); });
        std::vector<pid_t> children;
        for (int c = 1; c <= 8; ++c) {
            const pid_t child = fork();
            if (child == 0) {
                askTimes(10, c * 100000);
                _exit(testing::Test::HasFailure() ? 1 : 0);
            }
            children.push_back(child);
        }
        for (std::thread &each : threads) each.join();
        for (const pid_t child : children) {
            int status = -1;
            EXPECT_EQ(waitpid(child, &status, 0), child);
            EXPECT_EQ(status, 0);
        }
        EXPECT_EQ(requesterPathsLeft(), 0);
    });
    server.send(SIGKILL);
    server.finish();
}
