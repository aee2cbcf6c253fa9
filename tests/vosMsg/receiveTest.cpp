/* SPDX-License-Identifier: MIT */
/* The receive loop: what it returns, in which order it serves, and what it survives. */
#include <fcntl.h>
#include <sys/resource.h>

#include <array>

#include "peer.h"

using namespace vostest;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const char *const kNormal = "/tmp/vos/A";
const char *const kHigh = "/tmp/vos/AHigh";

/* What the handlers have seen, in order. */
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

TEST(Receive, AFailedReceiveOnTheHighSocketLooksAtTheBufferOnceMoreAndStaysInBounds) {
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

TEST(Receive, ASignalEndsTheWait) {
    Process server = start([] {
        openChannel("A");
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGUSR1, &action, nullptr);
        ready();
        EXPECT_EQ(receive(100, 0xFFFFFFFF).result, VOS_ERROR);
        puts("\r\nended");
    });
    server.awaitReady();
    const std::string line = errnoLine("vosMsgRecv:select", EINTR);
    /* it may not be in its wait yet: the signal is repeated until it has been seen */
    EXPECT_TRUE(eventually([&] {
        kill(server.pid(), SIGUSR1);
        int status = 0;
        siginfo_t info{};
        (void)status;
        return waitid(P_PID, static_cast<id_t>(server.pid()), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
               info.si_pid == server.pid();
    }));
    EXPECT_THAT(server.finish().messages(), Contains(line));
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
    const Outcome outcome = run([] {
        openChannel("A");
        const rlimit many{4096, 4096};
        setrlimit(RLIMIT_NOFILE, &many);
        g_vosFdProc = fcntl(g_vosFdProc, F_DUPFD, 1500);
        if (g_vosFdProc == -1) g_vosFdProc = 1500; /* the number alone decides */
        EXPECT_EQ(receive().result, VOS_ERROR);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgRecv:socket 1500 is out of select range."));
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
