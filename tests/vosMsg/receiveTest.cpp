/* SPDX-License-Identifier: MIT */
/* The receive loop: what it returns, in which order it serves, and what it survives. */
#include <fcntl.h>
#include <sys/resource.h>

#include <array>

#include "peer.h"
#include "support/signals.h"
#include "support/substitute.h"

using namespace vostest;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const char *const kNormal = "/tmp/vos/A";
const char *const kHigh = "/tmp/vos/AHigh";

/* The calls of the handlers, in order. */
std::vector<std::string> seen;

int32_t seeMac(uint32_t value1, uint32_t, uint32_t, void *) {
    seen.push_back("mac " + std::to_string(value1));
    return 0;
}

Bytes mac(uint32_t value1) { return message({.type = VOS_MSG_TYPE_MAC, .value1 = value1}); }

}  // namespace

TEST(Receive, OnTheHighSocketThePayloadIsCountedAndOnTheNormalOneTheHeaderToo) {
    run([] {
        openChannel("A");
        const Peer peer;
        EXPECT_TRUE(peer.send(kHigh, application("12345678")));
        const Received high = receive(100);
        EXPECT_EQ(high.result, 8);
        EXPECT_EQ(high.bytes.substr(0, 9), "12345678.");
        EXPECT_EQ(high.peer.iSocketFd, g_vosFdProcHigh);
        EXPECT_TRUE(peer.send(kNormal, application("12345678")));
        const Received normal = receive(100);
        EXPECT_EQ(normal.result, 40);
        EXPECT_EQ(normal.bytes.substr(0, 8), "12345678");
        EXPECT_EQ(normal.bytes.substr(40), std::string(60, '.'));
        EXPECT_EQ(normal.peer.iSocketFd, g_vosFdProc);
    });
}

TEST(Receive, AMessageLongerThanTheBufferIsCut) {
    run([] {
        openChannel("A");
        const Peer peer;
        for (const char *const path : {kNormal, kHigh}) {
            EXPECT_TRUE(peer.send(path, application("12345678")));
            std::array<char, 8> room;
            room.fill('#');
            VOS_MSG_PEER from;
            EXPECT_EQ(vosMsgRecv(0, room.data(), 4, 20000, &from), 4);
            EXPECT_EQ(std::string(room.data(), room.size()), "1234####");
        }
    });
}

TEST(Receive, TheLargestMessageAndTheLargestBufferStayInBounds) {
    run([] {
        openChannel("A");
        const Peer peer;
        for (const char *const path : {kNormal, kHigh}) {
            EXPECT_TRUE(peer.send(path, application(std::string(64568, 'x'))));
            const Received whole = receive(64568);
            EXPECT_EQ(whole.result, 64568);
            EXPECT_EQ(whole.bytes, std::string(64568, 'x'));
        }
        EXPECT_TRUE(peer.send(kNormal, application(std::string(66000, 'y'))));
        EXPECT_EQ(receive(64568).result, 64568);
    });
}

TEST(Receive, ThePeerRecordHoldsAddressLengthAndNoReturnWord) {
    run([] {
        openChannel("A");
        const Peer peer{"/tmp/vos/client"};
        EXPECT_TRUE(peer.send(kNormal, message({.noReturn = 3})));
        const Received received = receive();
        EXPECT_STREQ(received.peer.stAddr.sun_path, "/tmp/vos/client");
        EXPECT_EQ(received.peer.ulNoReturn, 3u);
        EXPECT_GE(received.peer.ulAddrLen, strlen("/tmp/vos/client") + 2);
        EXPECT_TRUE(Peer{}.send(kNormal, message({})));
        EXPECT_EQ(receive().peer.ulAddrLen, 0u);
    });
}

TEST(Receive, TheTimeOutRunsOut) {
    const Outcome outcome = run([] {
        openChannel("A");
        vosDebugConfig(VOS_DEBUG_TRACE);
        EXPECT_EQ(receive(100, 20).result, VOS_ERR_TIMEOUT);
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        vosDebugConfig(0);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgRecv:start.", "vosMsgRecv:select timeout.", "vosMsgRecv:start.",
                                                "vosMsgRecv:select timeout."));
}

TEST(Receive, ArgumentsAndTheChannelAreCheckedInTheirOrder) {
    const Outcome outcome = run([] {
        strcpy(szVosProcName, "scenario");
        char room[8];
        VOS_MSG_PEER peer;
        EXPECT_EQ(vosMsgRecv(0, room, 8, 0, nullptr), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgRecv(0, nullptr, 8, 0, &peer), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgRecv(0, room, 8, 0, &peer), VOS_ERR_NOT_INIT);
        g_vosFdProc = 0;
        EXPECT_EQ(vosMsgRecv(0, room, 8, 0, &peer), VOS_ERR_NOT_INIT);
        g_vosFdProc = -1;
        openChannel("A");
        vosDebugConfig(0); /* the last one is printed whatever the flag word holds */
        EXPECT_EQ(vosMsgRecv(0, room, 64569, 0, &peer), VOS_ERR_PARAM);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgRecv:parameter error.", "vosMsgRecv:parameter error.",
                                                "vosMsgRecv:msg is not initial.", "vosMsgRecv:high msg is not initial.",
                                                "vosMsgRecv:ulMsgSize too long."));
}

TEST(Receive, AnInternalMessageIsHandledAndTheCallReturnsForTheNextApplicationMessage) {
    run([] {
        openChannel("A");
        const Peer peer;
        EXPECT_TRUE(peer.send(kNormal, message({.type = VOS_MSG_VOS_DEBUG, .value1 = 8})));
        EXPECT_TRUE(peer.send(kNormal, application("next")));
        EXPECT_EQ(receive().bytes.substr(0, 4), "next");
        EXPECT_EQ(g_ulVosDebugFlags, 8u);
    });
}

TEST(Receive, AllInternalMessagesOfTheHighSocketComeBeforeTheNormalOne) {
    run([] {
        openChannel("A");
        vosMsgRegisterMac(seeMac);
        const Peer peer;
        EXPECT_TRUE(peer.send(kNormal, application("last")));
        for (uint32_t i = 1; i <= 3; ++i) EXPECT_TRUE(peer.send(kHigh, mac(i)));
        EXPECT_EQ(receive().bytes.substr(0, 4), "last");
        EXPECT_THAT(seen, ElementsAre("mac 1", "mac 2", "mac 3"));
    });
}

TEST(Receive, HighMessagesAreServedBeforeAFullNormalQueue) {
    run([] {
        openChannel("A");
        const Peer peer;
        int queued = 0;
        while (peer.send(kNormal, application("normal"), MSG_DONTWAIT)) ++queued;
        EXPECT_GE(queued, 2);
        const Peer other;
        EXPECT_TRUE(other.send(kHigh, application("high 1")));
        EXPECT_TRUE(other.send(kHigh, application("high 2")));
        EXPECT_EQ(receive().bytes.substr(0, 6), "high 1");
        EXPECT_EQ(receive().bytes.substr(0, 6), "high 2");
        for (int i = 0; i < queued; ++i) EXPECT_EQ(receive().bytes.substr(0, 6), "normal");
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
    });
}

TEST(Receive, ATooShortMessageOnTheNormalSocketIsDroppedWithOneLineAndTheLoopGoesOn) {
    const Outcome outcome = run([] {
        openChannel("A");
        const Peer peer;
        EXPECT_TRUE(peer.send(kNormal, Bytes{}.fill(1, 8)));
        EXPECT_TRUE(peer.send(kNormal, Bytes{}.fill(31, 8)));
        EXPECT_TRUE(peer.send(kNormal, application("good")));
        EXPECT_EQ(receive().bytes.substr(0, 4), "good");
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgRecv:message of 1 bytes is too short.",
                                                "vosMsgRecv:message of 31 bytes is too short."));
}

TEST(Receive, ATooShortMessageOnTheHighSocketEndsTheCall) {
    const Outcome outcome = run([] {
        openChannel("A");
        EXPECT_TRUE(Peer{}.send(kHigh, Bytes{}.fill(31, 8)));
        EXPECT_EQ(receive().result, VOS_ERROR);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgRecv:vosMsgRecvStream high failed, size 31."));
}

TEST(Receive, AnEmptyMessageOnTheNormalSocketEndsTheCall) {
    const Outcome outcome = run([] {
        openChannel("A");
        EXPECT_TRUE(Peer{}.send(kNormal, {}));
        EXPECT_EQ(receive().result, VOS_ERROR);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgRecvStream:recvfrom failed due to peer shutdown.",
                                                "vosMsgRecv:vosMsgRecvStream failed."));
}

TEST(Receive, AFailedReceiveOnTheHighSocketExaminesTheBufferAgainAndStaysInBounds) {
    run([] {
        openChannel("A");
        const Peer peer;
        EXPECT_TRUE(peer.send(kHigh, application("first")));
        EXPECT_EQ(receive(64568).result, 5);
        EXPECT_TRUE(peer.send(kHigh, {}));
        const Received again = receive(64568);
        EXPECT_EQ(again.result, 64568);
        EXPECT_EQ(again.bytes.substr(0, 5), "first");
    });
}

namespace {

/* A request that waits in the receive buffer, and then an empty datagram of another process to the high socket. */
Bytes answerToAnotherProcess(const Bytes &request) {
    Peer client{"/tmp/vos/client"};
    Peer other{"/tmp/vos/other"};
    EXPECT_TRUE(client.send(kHigh, request));
    EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
    const Bytes answer = client.receive();
    EXPECT_TRUE(other.send(kHigh, {}));
    EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
    EXPECT_FALSE(client.hasMail());
    const Bytes again = other.receive();
    EXPECT_EQ(again.wordAt(0), answer.wordAt(0));
    return again;
}

}  // namespace

TEST(Receive, AfterAnEmptyMessageOnTheHighSocketTheLastRequestIsServedAgain) {
    run([] {
        openChannel("A");
        static int handled;
        vosMsgRegisterCcd([](uint32_t, char *, uint32_t *, int32_t *, void *value, uint32_t *length, uint16_t *) {
            EXPECT_EQ(*length, 4u);
            EXPECT_EQ(memcmp(value, "abcd", 4), 0);
            ++handled;
            return 0;
        });
        vosMsgRegisterBldrun([](char *text, int32_t *room, uint32_t, uint32_t) {
            ++handled;
            memcpy(text, "text", 4);
            *room -= 4;
            return 0;
        });
        vosDebugConfig(0);
        const Bytes object =
            message({.type = VOS_MSG_TYPE_CCD, .value1 = 1}).word(8).text({"obj\0\0\0\0\0", 8}).word(4).text("abcd");
        EXPECT_EQ(answerToAnotherProcess(object).size(), 52u);
        EXPECT_EQ(handled, 2);
        EXPECT_EQ(answerToAnotherProcess(message({.type = VOS_MSG_TYPE_BLDRUN, .length = 64})).size(), 36u);
        EXPECT_EQ(handled, 4);
    });
}

TEST(Receive, TheLastMessageThatIsServedAgainEndsWhereItEnded) {
    const Outcome outcome = run([] {
        openChannel("A");
        vosMsgRegisterCcd([](uint32_t, char *, uint32_t *, int32_t *, void *, uint32_t *, uint16_t *) { return -1; });
        Peer other{"/tmp/vos/other"};
        /* Behind its first 32 bytes this message looks like the rest of a request for a configuration object. */
        Bytes secret = message({.type = VOS_MSG_TYPE_SELF});
        secret.word(8).text({"secret\0\0", 8}).word(4).text("abcd");
        EXPECT_TRUE(Peer{}.send(kNormal, secret));
        EXPECT_GT(receive(100).result, 0);
        EXPECT_TRUE(other.send(kHigh, message({.type = VOS_MSG_TYPE_CCD})));
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        EXPECT_TRUE(other.send(kHigh, {}));
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        EXPECT_FALSE(other.hasMail());
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgProcessInternel:ccd request of 32 bytes is malformed.",
                                                "vosMsgRecvStream:recvfrom failed due to peer shutdown.",
                                                "vosMsgProcessInternel:ccd request of 32 bytes is malformed."));
}

TEST(Receive, AnUnknownTypeIsRejectedAndNotAnswered) {
    const Outcome outcome = run([] {
        openChannel("A");
        Peer client{"/tmp/vos/client"};
        for (const uint32_t type : {10u, 0xFFFFFFFFu}) EXPECT_TRUE(client.send(kNormal, message({.type = type})));
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        EXPECT_FALSE(client.hasMail());
    });
    EXPECT_THAT(outcome.messages(), Contains("vosMsgProcessInternel:invalid msg type 10."));
    EXPECT_THAT(outcome.messages(), Contains("vosMsgProcessInternel:invalid msg type 4294967295."));
}

TEST(Receive, ASignalEndsTheWaitWhateverItsHandler) {
    for (const int flags : {0, SA_RESTART})
        for (const uint32_t timeoutMs : {20000u, 0xFFFFFFFFu}) {
            const Outcome outcome = run([=] {
                openChannel("A");
                countSignals(SIGUSR1, flags);
                interrupt({.call = "select"}, [=] { EXPECT_EQ(receive(100, timeoutMs).result, VOS_ERROR); });
                EXPECT_EQ(signalsCounted(), 1);
                /* a loop written as in the documentation continues, and no message is lost */
                EXPECT_TRUE(Peer{}.send(kNormal, application("next")));
                EXPECT_EQ(receive().bytes.substr(0, 4), "next");
            });
            EXPECT_THAT(outcome.messages(), ElementsAre(errnoLine("vosMsgRecv:select", EINTR)));
        }
}

TEST(Receive, SignalsWhileTheHighSocketIsEmptiedLoseNoMessage) {
    static constexpr uint32_t kMessages = 3000;
    Process server = start([] {
        openChannel("A");
        vosDebugConfig(0); /* a signal may come in any wait, and each one writes a line */
        vosMsgRegisterMac(seeMac);
        countSignals(SIGUSR1, 0);
        ready();
        while (receive().bytes.substr(0, 4) != "last") continue;
        ASSERT_EQ(seen.size(), kMessages);
        for (uint32_t i = 0; i < kMessages; ++i) ASSERT_EQ(seen[i], "mac " + std::to_string(i));
        EXPECT_GT(signalsCounted(), 0);
    });
    server.awaitReady();
    const Peer peer;
    for (uint32_t i = 0; i < kMessages; ++i) {
        ASSERT_TRUE(peer.send(kHigh, mac(i)));
        kill(server.pid(), SIGUSR1);
    }
    EXPECT_TRUE(peer.send(kNormal, application("last")));
    server.finish();
}

TEST(Receive, EachFailingCallEndsTheCallWithItsLine) {
    const auto prepare = [] {
        openChannel("A");
        EXPECT_TRUE(Peer{}.send(kNormal, application("ping")));
    };
    const auto attempts = failEachCall(prepare, [] { return long{receive(100, 20000).result}; });
    ASSERT_EQ(attempts.size(), 2u);
    expectNothingKept(attempts);
    EXPECT_EQ(at(attempts, "select#1").result, VOS_ERROR);
    EXPECT_THAT(at(attempts, "select#1").messages, ElementsAre(errnoLine("vosMsgRecv:select", EIO)));
    EXPECT_EQ(at(attempts, "recvfrom#1").result, VOS_ERROR);
    EXPECT_THAT(at(attempts, "recvfrom#1").messages,
                ElementsAre(errnoLine("vosMsgRecvStream:recvfrom", EIO), "vosMsgRecv:vosMsgRecvStream failed."));
}

TEST(Receive, AFailingPollOfTheHighSocketEndsItsTurnAndTheLoopGoesOn) {
    const auto prepare = [] {
        openChannel("A");
        EXPECT_TRUE(Peer{}.send(kHigh, mac(1)));
        EXPECT_TRUE(Peer{}.send(kNormal, application("ping")));
    };
    const Attempt attempt =
        failCall({.call = "select", .occurrence = 2}, prepare, [] { return long{receive(100, 20000).result}; });
    EXPECT_EQ(attempt.result, 36);
    EXPECT_THAT(attempt.messages, ElementsAre(errnoLine("vosMsgRecv:select", EIO)));
}

TEST(Receive, ASocketBeyondTheSelectRangeFailsWithOneLine) {
    for (int32_t *const socket : {&g_vosFdProc, &g_vosFdProcHigh, &g_vosFdNLUni})
        for (const int32_t number : {1024, 1500, 0x7FFFFFFF}) {
            const Outcome outcome = run([=] {
                openChannel("A");
                *socket = number; /* the number alone decides */
                EXPECT_EQ(receive().result, VOS_ERROR);
            });
            EXPECT_THAT(outcome.messages(),
                        ElementsAre("vosMsgRecv:socket " + std::to_string(number) + " is out of select range."));
        }
}

TEST(Receive, TheLastSocketOfTheSelectRangeIsServed) {
    run([] {
        openChannel("A");
        const rlimit many{4096, 4096};
        setrlimit(RLIMIT_NOFILE, &many);
        for (int32_t *const socket : {&g_vosFdProc, &g_vosFdProcHigh}) {
            const int32_t first = *socket;
            *socket = fcntl(first, F_DUPFD, 1023);
            EXPECT_EQ(*socket, 1023);
            EXPECT_TRUE(Peer{}.send(socket == &g_vosFdProc ? kNormal : kHigh, application("reached")));
            EXPECT_EQ(receive().bytes.substr(0, 7), "reached");
            close(*socket);
            *socket = first;
        }
    });
}

TEST(Receive, ABufferMayBeTheReceiveBufferItselfAndThePeerIsStillTheRequester) {
    for (const uint32_t offset : {0u, 4u, 16u, 32u, 40u})
        run([=] {
            openChannel("A");
            const Peer client{"/tmp/vos/client"};
            const std::string payload = "0123456789abcdef0123456789abcdef0123456789abcdef";
            for (const char *const path : {kNormal, kHigh}) {
                EXPECT_TRUE(client.send(path, message({.noReturn = 3, .length = 48}, payload)));
                VOS_MSG_PEER peer;
                EXPECT_GE(vosMsgRecv(0, g_vosMsgBufferRecv + offset, 48, 20000, &peer), 48);
                EXPECT_EQ(memcmp(g_vosMsgBufferRecv + offset, payload.data(), 48), 0);
                EXPECT_EQ(peer.ulNoReturn, 3u);
                EXPECT_STREQ(peer.stAddr.sun_path, "/tmp/vos/client");
            }
        });
}

TEST(Receive, WithoutABufferASizeOfZeroTakesTheMessage) {
    run([] {
        openChannel("A");
        const Peer client{"/tmp/vos/client"};
        for (const char *const path : {kNormal, kHigh}) {
            EXPECT_TRUE(client.send(path, message({.noReturn = 3}, "payload")));
            VOS_MSG_PEER peer;
            EXPECT_EQ(vosMsgRecv(0, nullptr, 0, 20000, &peer), 0);
            EXPECT_EQ(peer.ulNoReturn, 3u);
            EXPECT_STREQ(peer.stAddr.sun_path, "/tmp/vos/client");
        }
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
    });
}

TEST(Receive, AnyTurnOfTheLoopStartsTheTimeOutAgain) {
    run([] {
        openChannel("A");
        vosMsgRegisterMac(seeMac);
        /* each wait has the whole time-out; an internal message ends it */
        static long asked;
        substitute(
            "select", +[](int count, fd_set *in, fd_set *out, fd_set *other, timeval *limit) {
                EXPECT_EQ(limit->tv_sec * 1000 + limit->tv_usec / 1000, 300);
                ++asked;
                EXPECT_TRUE(asked > 5 || Peer{}.send(kNormal, mac(1)));
                if (asked == 6) limit->tv_usec = 0;
                return select(count, in, out, other, limit);
            });
        EXPECT_EQ(receive(100, 300).result, VOS_ERR_TIMEOUT);
        EXPECT_EQ(asked, 6);
        EXPECT_EQ(seen.size(), 5u);
    });
}

TEST(Receive, ItsTracesNameTheKindOfSocket) {
    const Outcome outcome = run([] {
        openChannel("A");
        const Peer peer;
        EXPECT_TRUE(peer.send(kNormal, application("x")));
        EXPECT_TRUE(peer.send(kHigh, application("x")));
        vosDebugConfig(VOS_DEBUG_TRACE);
        receive();
        receive();
        vosDebugConfig(0);
    });
    EXPECT_THAT(
        outcome.messages(),
        ElementsAre("vosMsgRecv:start.", "vosMsgRecvStream:start.", "vosMsgRecvStream:end return 33.",
                    "vosMsgRecv:high receive VOS_MSG_TYPE_SELF.", "vosMsgRecv:start.", "vosMsgRecvStream:start.",
                    "vosMsgRecvStream:end return 33.", "vosMsgRecv:receive VOS_MSG_TYPE_SELF."));
}
