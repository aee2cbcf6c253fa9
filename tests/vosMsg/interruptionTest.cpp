/* SPDX-License-Identifier: MIT */
/* A real signal that comes while a request or an answer waits in the kernel. */
#include "support/signals.h"

#include <thread>

#include "peer.h"

using namespace vostest;
using testing::ElementsAre;

namespace {

/* One call that waits for an answer, and how its end by a signal is logged. */
struct Waiting {
    const char *systemCall;
    std::function<int32_t()> make;
    std::vector<std::string> lines;
};

uint32_t answerCode;

int32_t askForDescription() {
    static uint32_t out[10];
    static uint32_t table[32];
    return vosMsgCcdObjInfoGetSend(&answerCode, "B", "object", 0, &out[0], &out[1], &out[2], &out[3], &out[4], &out[5],
                                   table, &out[6], &out[7], &out[8], &out[9]);
}

int32_t askForConfiguration() {
    static char text[64];
    uint32_t length = sizeof text;
    const int32_t result = vosMsgBldrunSend("B", text, &length, 0, 0);
    EXPECT_EQ(length, sizeof text);
    return result;
}

char text[5] = "ping";

const std::vector<Waiting> &waiting() {
    static const std::vector<Waiting> all{
        {"recvmsg",
         [] { return vosMsgSend("B", text, 4, 0, &answerCode, 20000, 0); },
         {errnoLine("vosMsgSend:read", EINTR)}},
        {"read",
         [] { return vosMsgSend2("B", text, 4, 0, &answerCode, 20000, 0); },
         {errnoLine("vosMsgSend2:read", EINTR)}},
        {"recvmsg",
         [] { return vosMsgThreadSend("B", 1, text, 4, 0, &answerCode, 20000, 0); },
         {errnoLine("vosMsgThreadSend:read", EINTR)}},
        {"recvmsg",
         askForConfiguration,
         {errnoLine("vosMsgRecvStream1:recvmsg", EINTR), "vosMsgBldrunSend:vosMsgRecvStream1 failed."}},
        {"read", askForDescription, {errnoLine("vosMsgCcdObjInfoGetSend:read", EINTR)}},
    };
    return all;
}

/* The normal, the high and the thread socket of a process that never answers. */
struct Silent {
    Peer normal{"/tmp/vos/B"};
    Peer high{"/tmp/vos/BHigh"};
    Peer thread{"/tmp/vos/B1"};
};

/* Answers the request that a socket has received. It runs in a signal handler. */
const Peer *asked;
void answerNow(int) {
    static char bytes[100];
    sockaddr_un from{};
    socklen_t length = sizeof from;
    auto *const address = reinterpret_cast<sockaddr *>(&from);
    const ssize_t count = recvfrom(asked->fd(), bytes, sizeof bytes, 0, address, &length);
    sendto(asked->fd(), bytes, static_cast<std::size_t>(count), 0, address, length);
}

int32_t sendUntimed() { return vosMsgSend("B", text, 4, 0, &answerCode, 0, 0); }

int32_t sendUntimedAndBeAnswered(int flags) {
    const Silent receiver;
    asked = &receiver.normal;
    struct sigaction action {};
    action.sa_handler = answerNow;
    action.sa_flags = flags;
    EXPECT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    int32_t result = 77;
    interrupt({.call = "recvmsg"}, [&] { result = sendUntimed(); });
    return result;
}

}  // namespace

TEST(Interruption, ASignalEndsEveryTimedWaitForAnAnswerWhateverItsHandler) {
    for (const Waiting &each : waiting())
        for (const int flags : {0, SA_RESTART}) {
            const Outcome outcome = run([&] {
                freshWorld();
                const Silent receiver;
                countSignals(SIGUSR1, flags);
                answerCode = 77;
                interrupt({.call = each.systemCall}, [&] {
                    EXPECT_EQ(each.make(), VOS_ERROR);
                    EXPECT_EQ(errno, EINTR);
                });
                EXPECT_EQ(signalsCounted(), 1);
                EXPECT_EQ(answerCode, 77u);
                EXPECT_EQ(requesterPathsLeft(), 0);
            });
            EXPECT_EQ(outcome.messages(), each.lines);
        }
}

TEST(Interruption, WithoutATimeOutTheWaitGoesOnAfterAHandlerThatRestartsCalls) {
    run([] {
        freshWorld();
        EXPECT_EQ(sendUntimedAndBeAnswered(SA_RESTART), VOS_OK);
    });
}

TEST(Interruption, WithoutATimeOutTheWaitEndsAfterAnyOtherHandler) {
    const Outcome outcome = run([] {
        freshWorld();
        EXPECT_EQ(sendUntimedAndBeAnswered(0), VOS_ERROR);
        EXPECT_EQ(errno, EINTR);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(errnoLine("vosMsgSend:read", EINTR)));
}

/* The kernel keeps an ignored signal that is blocked where it arrives, and offers it to the other threads. */
TEST(Interruption, TheEndOfAChildEndsTheWaitOfAThreadThatDoesNotBlockItsSignalAsTheOthersDo) {
    const Outcome outcome = run([] {
        freshWorld();
        const Silent receiver;
        const pid_t child = fork();
        if (child == 0) {
            pause();
            _exit(0);
        }
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGCHLD);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        std::thread asker([&] {
            pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
            interrupt({.call = "recvmsg", .instead = [&](pid_t) { kill(child, SIGKILL); }}, [] {
                EXPECT_EQ(vosMsgSend("B", text, 4, 0, &answerCode, 20000, 0), VOS_ERROR);
                EXPECT_EQ(errno, EINTR);
            });
        });
        asker.join();
        EXPECT_EQ(waitpid(child, nullptr, 0), child);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(errnoLine("vosMsgSend:read", EINTR)));
}

TEST(Interruption, TheReceiverStillServesTheRequest) {
    Process server = start([] {
        openChannel("A");
        ready();
        EXPECT_EQ(receive().result, 36);
        EXPECT_EQ(receive().result, 36);
    });
    server.awaitReady();
    server.send(SIGSTOP);
    run([] {
        countSignals(SIGUSR1, SA_RESTART);
        vosDebugConfig(0);
        interrupt({.call = "recvmsg"},
                  [] { EXPECT_EQ(vosMsgSend("A", text, 4, 0, &answerCode, 20000, 0), VOS_ERROR); });
        EXPECT_EQ(vosMsgSend("A", text, 4, 1, nullptr, 20000, 0), VOS_OK);
    });
    server.send(SIGCONT);
    server.finish();
}

namespace {

/* A requester whose queue is full: the next answer to it has to wait. */
VOS_MSG_PEER fullRequester() {
    static const Peer *requester = stay("/tmp/vos/client");
    VOS_MSG_PEER peer{};
    peer.stAddr = addressOf("/tmp/vos/client");
    peer.ulAddrLen = sizeof peer.stAddr;
    peer.iSocketFd = g_vosFdProc;
    EXPECT_GE(requester->fd(), 0);
    const auto *const to = reinterpret_cast<const sockaddr *>(&peer.stAddr);
    int sent = 0;
    while (sendto(g_vosFdProc, "x", 1, MSG_DONTWAIT, to, sizeof peer.stAddr) == 1) ++sent;
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GT(sent, 0);
    return peer;
}

}  // namespace

TEST(Interruption, ASignalEndsAnAnswersWaitForAFullRequester) {
    for (const int flags : {0, SA_RESTART}) {
        const Outcome outcome = run([=] {
            freshWorld();
            openChannel("A");
            const VOS_MSG_PEER peer = fullRequester();
            countSignals(SIGUSR1, flags);
            interrupt({.call = "sendmsg"}, [&] {
                EXPECT_EQ(vosMsgResp(0, 0, "pong", 4, &peer), VOS_ERROR);
                EXPECT_EQ(errno, EINTR);
            });
        });
        EXPECT_THAT(outcome.messages(), ElementsAre(errnoLine("vosMsgResp:sendmsg", EINTR)));
    }
}

TEST(Interruption, AnAnswerToAFullRequesterWaitsForTheTimeOutOfTheSocket) {
    const Outcome outcome = run([] {
        freshWorld();
        openChannel("A");
        timeval limit{};
        socklen_t length = sizeof limit;
        getsockopt(g_vosFdProc, SOL_SOCKET, SO_SNDTIMEO, &limit, &length);
        EXPECT_EQ(limit.tv_sec, 3);
        limit = {0, 200000};
        setsockopt(g_vosFdProc, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
        const VOS_MSG_PEER peer = fullRequester();
        const auto before = std::chrono::steady_clock::now();
        EXPECT_EQ(vosMsgResp(0, 0, "pong", 4, &peer), VOS_ERROR);
        EXPECT_EQ(errno, EAGAIN);
        EXPECT_GE(std::chrono::steady_clock::now() - before, Milliseconds(190));
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(errnoLine("vosMsgResp:sendmsg", EAGAIN)));
}
