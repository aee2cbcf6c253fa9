/* SPDX-License-Identifier: MIT */
/* Taps that do not read, that end, and processes that fork, execute, use threads or close descriptors meanwhile: copies
 * may be lost, which is counted, and nothing else. */
#include <fcntl.h>
#include <sys/wait.h>

#include <atomic>
#include <thread>

#include "support/substitute.h"
#include "tap.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

uint32_t code;

/* Sends to itself, and receives, so that each round makes two copies: a request goes out and comes in. */
void exchangeOnce(const char *name = "A") {
    char text[] = "text";
    EXPECT_EQ(vosMsgSend(name, text, 4, 1, &code, 3000, 0), VOS_OK);
    EXPECT_GT(receive().result, 0);
}

/* A connected pair of threads of one process: requests by one thread, answers by this one. */
constexpr int kRequests = 300;

void askMany() {
    for (int i = 0; i < kRequests; ++i) {
        char text[] = "ping";
        uint32_t answer = 0;
        ASSERT_EQ(vosMsgSend("A", text, 4, 0, &answer, 20000, 0), VOS_OK);
        ASSERT_EQ(answer, 7u);
        ASSERT_STREQ(text, "pong");
    }
}

bool isOpen(int fd) { return fcntl(fd, F_GETFD) != -1; }

/* The descriptor that the next socket gets. */
int nextDescriptor() {
    const int fd = dup(STDIN_FILENO);
    close(fd);
    return fd;
}

/* Switches a tap on, and returns the descriptor of the process's socket to it. */
int socketTo(TapPeer &tap) {
    std::array<bool, 1024> before{};
    for (int fd = 0; fd < 1024; ++fd) before.at(static_cast<std::size_t>(fd)) = isOpen(fd);
    tap.on();
    int found = -1;
    for (int fd = 0; fd < 1024; ++fd) {
        if (!isOpen(fd) || before.at(static_cast<std::size_t>(fd))) continue;
        EXPECT_EQ(found, -1) << "more than one";
        found = fd;
    }
    EXPECT_NE(found, -1);
    return found;
}

}  // namespace

TEST(TapLoss, AFullTapLosesCopiesWhichAreCountedAndNothingElse) {
    const Outcome outcome = run([] {
        openChannel("A");
        TapPeer tap;
        tap.on();
        constexpr int kRounds = 2000; /* more than any queue holds */
        for (int i = 0; i < kRounds; ++i) exchangeOnce();
        uint64_t last = 0;
        uint64_t got = 0;
        for (; tap.hasMail(); ++got) {
            const Copy copy = tap.next();
            EXPECT_GT(copy.head.ullNumber, last) << "the copies of one thread come in order";
            last = copy.head.ullNumber;
        }
        EXPECT_GT(got, 0u);
        EXPECT_LT(got, 2u * kRounds);
        exchangeOnce();
        const Copy next = tap.next();
        EXPECT_EQ(next.head.ullNumber, 2 * kRounds + 1u);
        EXPECT_EQ(next.head.ullLost, 2 * kRounds - got);
        EXPECT_EQ(tap.next().head.ullNumber, 2 * kRounds + 2u);
        tap.off();
        const Copy stopped = tap.next();
        EXPECT_EQ(stopped.head.ullNumber, 2 * kRounds + 2u);
        EXPECT_EQ(stopped.head.ullLost, 2 * kRounds - got);
    });
    EXPECT_THAT(withoutTuning(outcome.messages()), IsEmpty());
}

TEST(TapLoss, ATapWhoseSocketIsGoneSwitchesItselfOffWithTheNextMessage) {
    const Outcome outcome = run([] {
        openChannel("A");
        int number = -1;
        {
            TapPeer tap;
            number = socketTo(tap);
        }
        EXPECT_TRUE(isOpen(number));
        exchangeOnce();
        EXPECT_FALSE(isOpen(number));
        const auto calls = Faults::record([] { exchangeOnce(); });
        EXPECT_EQ(std::count(calls.begin(), calls.end(), "sendmsg"), 1); /* the request alone */
    });
    EXPECT_THAT(withoutTuning(outcome.messages()), IsEmpty());
}

TEST(TapLoss, OneTapThatIsGoneLeavesTheOthersOn) {
    run([] {
        openChannel("A");
        TapPeer stays;
        stays.on();
        { TapPeer{"gone"}.on(); }
        exchangeOnce();
        exchangeOnce();
        for (uint64_t number = 1; number <= 4; ++number) EXPECT_EQ(stays.next().head.ullNumber, number);
    });
}

TEST(TapLoss, AFailedCopyChangesNeitherTheResultNorErrno) {
    for (const int error : {EAGAIN, EINTR, ECONNREFUSED, ENOBUFS, ENOMEM, EMSGSIZE, EBADF, EPERM, EPIPE}) {
        const Outcome outcome = run([=] {
            openChannel("A");
            TapPeer tap;
            tap.on();
            Peer client{"/tmp/vos/client"};
            EXPECT_TRUE(client.send("/tmp/vos/A", application("x")));
            Received request = receive();
            EXPECT_EQ(tap.nextWhat(), VOS_MSG_TAP_RECEIVED);
            errno = 77;
            Faults::arm({.call = "sendmsg", .occurrence = 2, .error = error}); /* the answer is the first */
            EXPECT_EQ(vosMsgResp(0, 1, "pong", 4, &request.peer), VOS_OK);
            EXPECT_TRUE(Faults::disarm());
            EXPECT_EQ(errno, 77);
            EXPECT_EQ(client.receive(), message({.retCode = 1, .value1 = 255, .length = 4}, "pong"));
        });
        EXPECT_THAT(withoutTuning(outcome.messages()), IsEmpty());
    }
}

TEST(TapLoss, AFailedMessageKeepsItsErrnoUnderATap) {
    const Outcome outcome = run([] {
        openChannel("A");
        TapPeer tap;
        tap.on();
        char text[] = "text";
        for (const std::string call : {"connect", "sendmsg", "recvmsg"}) {
            const Peer other{"/tmp/vos/B"};
            Faults::arm({.call = call, .error = EDOM});
            EXPECT_EQ(vosMsgSend("B", text, 4, 0, &code, 10, 0), VOS_ERROR);
            EXPECT_TRUE(Faults::disarm());
            EXPECT_EQ(errno, EDOM);
            Copy copy = tap.next();
            if (call == "recvmsg") copy = tap.next();
            EXPECT_EQ(copy.head.iResult, -1);
            EXPECT_EQ(copy.head.iErrno, EDOM);
        }
    });
    EXPECT_THAT(withoutTuning(outcome.messages()),
                ElementsAre(errnoLine("vosMsgSend:connect /tmp/vos/B", EDOM), errnoLine("vosMsgSend:sendmsg", EDOM),
                            errnoLine("vosMsgSend:read", EDOM)));
}

TEST(TapLoss, ADescriptorThatTheProgramClosedAndUsesAgainIsNotClosedForIt) {
    run([] {
        openChannel("A");
        TapPeer tap;
        const int number = socketTo(tap);
        EXPECT_EQ(dup2(STDIN_FILENO, number), number); /* closed, and used again */
        exchangeOnce();
        EXPECT_TRUE(isOpen(number));
        exchangeOnce();
        EXPECT_TRUE(isOpen(number));
        TapPeer another{"another"};
        another.on();
        exchangeOnce();
        EXPECT_EQ(another.nextWhat(), VOS_MSG_TAP_SENT);
    });
}

TEST(TapLoss, AChildOfForkHasNoTapUntilOneIsSwitchedOnThere) {
    const Outcome outcome = run([] {
        openChannel("A");
        TapPeer tap;
        tap.on();
        const Peer other{"/tmp/vos/B"};
        const pid_t child = fork();
        if (child == 0) {
            char text[] = "text";
            EXPECT_EQ(vosMsgSend("B", text, 4, 1, &code, 3000, 0), VOS_OK);
            EXPECT_FALSE(tap.hasMail());
            /* its own tap: it takes the request from the socket that it shares with its parent */
            TapPeer own{"own"};
            own.on();
            EXPECT_EQ(vosMsgSend("B", text, 4, 1, &code, 3000, 0), VOS_OK);
            const Copy copy = own.next();
            EXPECT_EQ(copy.head.ulProcessId, static_cast<uint32_t>(getpid()));
            EXPECT_EQ(copy.head.ulThreadId, static_cast<uint32_t>(getpid()));
            EXPECT_EQ(copy.head.ullNumber, 1u);
            EXPECT_FALSE(tap.hasMail());
            own.off();
            EXPECT_EQ(own.nextWhat(), VOS_MSG_TAP_STOPPED);
            _exit(testing::Test::HasFailure());
        }
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
        exchangeOnce();
        EXPECT_EQ(tap.next().head.ulProcessId, static_cast<uint32_t>(getpid()));
        EXPECT_EQ(tap.next().head.ullNumber, 2u);
    });
    EXPECT_THAT(withoutTuning(outcome.messages()), IsEmpty());
}

TEST(TapLoss, AnExecutedProgramDoesNotGetTheSocket) {
    run([] {
        openChannel("A");
        TapPeer tap;
        EXPECT_NE(fcntl(socketTo(tap), F_GETFD) & FD_CLOEXEC, 0);
    });
}

TEST(TapLoss, ThreadsThatExchangeWhileTapsComeAndGoLoseNothing) {
    const Outcome outcome = run([] {
        openChannel("A");
        vosDebugConfig(0);
        std::atomic<int> running = 3;
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i)
            threads.emplace_back([&] {
                askMany();
                --running;
            });
        std::thread switching([&] {
            for (uint64_t round = 0; running > 0; ++round) {
                TapPeer tap{"tap" + std::to_string(round % 6)};
                tap.ask("A", VOS_MSG_TAP_ON, static_cast<uint32_t>(round % 3));
                const uint8_t what = tap.nextWhat();
                EXPECT_TRUE(what == VOS_MSG_TAP_STARTED || what == VOS_MSG_TAP_REFUSED);
                if (round % 4 == 3) continue; /* it ends without a word */
                tap.ask("A", VOS_MSG_TAP_OFF);
            }
        });
        int served = 0;
        while (served < 3 * kRequests || running > 0) {
            Received request = receive(100, 50);
            if (request.result < 0) continue;
            ++served;
            EXPECT_EQ(vosMsgResp(0, 7, "pong", 4, &request.peer), VOS_OK);
        }
        while (receive(100, 100).result != VOS_ERR_TIMEOUT) continue;
        /* the switching thread may wait for the answer to its last request */
        std::atomic<bool> done = false;
        std::thread joining([&] {
            switching.join();
            done = true;
        });
        while (!done) receive(100, 50);
        joining.join();
        for (std::thread &thread : threads) thread.join();
        EXPECT_EQ(served, 3 * kRequests);
    });
    EXPECT_EQ(outcome.output.find("invalid"), std::string::npos);
}

TEST(TapLoss, TwoLoopsThatGetTheSameRequestSwitchOneTapOn) {
    run([] {
        int reserved = 0;
        openChannel("A");
        vosDebugConfig(0);
        EXPECT_EQ(vosMsgInit2("second", 1, &reserved), VOS_OK);
        const int rounds = 200;
        const int before = nextDescriptor();
        std::atomic<bool> ended = false;
        std::thread second([&] {
            std::array<char, 100> room;
            VOS_MSG_PEER peer;
            while (!ended) vosMsgRecv2(0, room.data(), 100, 20, &peer);
        });
        for (int i = 0; i < rounds; ++i) {
            TapPeer tap;
            tap.ask("second", VOS_MSG_TAP_ON);
            tap.ask("A", VOS_MSG_TAP_ON);
            EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
            EXPECT_EQ(tap.nextWhat(), VOS_MSG_TAP_STARTED);
            EXPECT_EQ(tap.nextWhat(), VOS_MSG_TAP_STARTED);
            exchangeOnce();
            EXPECT_EQ(tap.next().head.ullNumber, 1u);
            EXPECT_EQ(tap.next().head.ullNumber, 2u);
            EXPECT_FALSE(tap.hasMail());
            tap.off();
            EXPECT_EQ(tap.nextWhat(), VOS_MSG_TAP_STOPPED);
        }
        ended = true;
        second.join();
        EXPECT_EQ(nextDescriptor(), before);
    });
}

TEST(TapLoss, ACancelledThreadLeavesTheTapUsable) {
    run([] {
        openChannel("A");
        const Peer other{"/tmp/vos/B"};
        TapPeer tap;
        tap.on();
        std::thread asking([] {
            char text[] = "text";
            uint32_t answer = 0;
            for (;;) vosMsgSend("B", text, 4, 1, &answer, 1, 0);
        });
        EXPECT_EQ(tap.nextWhat(), VOS_MSG_TAP_SENT);
        EXPECT_EQ(pthread_cancel(asking.native_handle()), 0);
        asking.join();
        while (tap.hasMail()) tap.next();
        tap.off();
        EXPECT_EQ(tap.nextWhat(), VOS_MSG_TAP_STOPPED); /* sent by the last user: none was left over */
    });
}
