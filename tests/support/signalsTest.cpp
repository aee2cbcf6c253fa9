/* SPDX-License-Identifier: MIT */
/* Tests of signals.h: the signal comes while the call sleeps, and a missing call fails the test. */
#include "support/signals.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "support/child.h"
#include "vos.h"

using namespace vostest;

namespace {

/* One receive that sleeps until a byte comes, or for ever. */
int32_t receiveOne(int fd) {
    char byte = 0;
    return vosMsgRecvStream(fd, &byte, 1, nullptr, nullptr);
}

struct Ends {
    int ends[2] = {-1, -1};
    Ends() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends), 0); }
    Ends(const Ends &) = delete;
    Ends &operator=(const Ends &) = delete;
    ~Ends() {
        close(ends[0]);
        close(ends[1]);
    }
};

}  // namespace

TEST(Signals, OneComesWhileTheCallSleepsAndEndsIt) {
    run([] {
        const Ends pair;
        vosDebugConfig(0);
        countSignals(SIGUSR1, 0);
        interrupt({.call = "recvfrom"}, [&] {
            EXPECT_EQ(receiveOne(pair.ends[0]), VOS_ERROR);
            EXPECT_EQ(errno, EINTR);
        });
        EXPECT_EQ(signalsCounted(), 1);
    });
}

TEST(Signals, AfterAHandlerThatRestartsTheCallGoesOn) {
    run([] {
        static const Ends pair;
        struct sigaction action {};
        action.sa_handler = [](int) { EXPECT_EQ(write(pair.ends[1], "x", 1), 1); }; /* the restarted call reads it */
        action.sa_flags = SA_RESTART;
        sigaction(SIGUSR1, &action, nullptr);
        interrupt({.call = "recvfrom"}, [&] { EXPECT_EQ(receiveOne(pair.ends[0]), 1); });
    });
}

TEST(Signals, TheThreadThatSleepsGetsItAndNoOther) {
    run([] {
        const Ends pair;
        static std::atomic<pid_t> handled = 0;
        vosDebugConfig(0);
        struct sigaction action {};
        action.sa_handler = [](int) { handled = gettid(); };
        sigaction(SIGUSR1, &action, nullptr);
        interrupt({.call = "recvfrom"}, [&] {
            std::thread([&] {
                EXPECT_EQ(receiveOne(pair.ends[0]), VOS_ERROR);
                EXPECT_EQ(handled, gettid());
            }).join();
        });
    });
}

TEST(Signals, SomethingElseMayBeDoneInTheSignalsPlace) {
    run([] {
        const Ends pair;
        vosDebugConfig(0);
        countSignals(SIGUSR2, 0);
        const auto other = [](pid_t sleeper) { kill(sleeper, SIGUSR2); };
        interrupt({.call = "recvfrom", .instead = other}, [&] { EXPECT_EQ(receiveOne(pair.ends[0]), VOS_ERROR); });
        EXPECT_EQ(signalsCounted(), 1);
    });
}

TEST(Signals, ACallThatIsNeverMadeFailsTheTest) {
    EXPECT_NONFATAL_FAILURE(interrupt({.call = "recvfrom"}, [] {}), "recvfrom#1 never slept");
}
