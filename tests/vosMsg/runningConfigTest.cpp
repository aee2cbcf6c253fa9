/* SPDX-License-Identifier: MIT */
/* Running configurations: the request and the answer. */
#include <thread>

#include "peer.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

std::function<int32_t(char *text, int32_t *room, uint32_t value1, uint32_t value2)> builder;

int32_t build(char *text, int32_t *room, uint32_t value1, uint32_t value2) {
    return builder(text, room, value1, value2);
}

Process building(decltype(builder) with) {
    Process server = start([=] {
        openChannel("A");
        builder = with;
        if (with) vosMsgRegisterBldrun(build);
        ready();
        receive(100, 20000);
    });
    server.awaitReady();
    return server;
}

int32_t writeHundred(char *text, int32_t *room, uint32_t, uint32_t) {
    memset(text, 'c', 100);
    *room -= 100;
    return 0;
}

const Bytes kRequest = message({.type = VOS_MSG_TYPE_BLDRUN, .length = 64});

/* Serves requests that a plain socket sends to the process's own high socket. */
Outcome serving(
    const std::vector<Bytes> &requests, decltype(builder) with,
    const std::function<void(Peer &)> &look = [](Peer &) {}) {
    return run([&] {
        openChannel("A");
        builder = with;
        vosMsgRegisterBldrun(with ? build : nullptr);
        Peer client{"/tmp/vos/client"};
        for (const Bytes &each : requests) EXPECT_TRUE(client.send("/tmp/vos/AHigh", each));
        const int blocks = Faults::liveBlocks();
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        EXPECT_EQ(Faults::liveBlocks(), blocks);
        look(client);
    });
}

}  // namespace

TEST(RunningConfig, AHundredBytesOf4096Leave3996Free) {
    Process server = building([](char *text, int32_t *room, uint32_t value1, uint32_t value2) {
        EXPECT_EQ(*room, 4096);
        EXPECT_EQ(value1, 11u);
        EXPECT_EQ(value2, 12u);
        for (int i = 0; i < 4096; ++i) EXPECT_EQ(text[i], 0);
        return writeHundred(text, room, 0, 0);
    });
    run([] {
        char text[4096] = {};
        uint32_t length = sizeof text;
        EXPECT_EQ(vosMsgBldrunSend("A", text, &length, 11, 12), VOS_OK);
        EXPECT_EQ(length, 3996u);
        EXPECT_EQ(std::string(text, 100), std::string(100, 'c'));
        EXPECT_EQ(text[100], 0);
        EXPECT_EQ(requesterPathsLeft(), 0);
    });
    server.send(SIGKILL);
}

/* As much as one datagram may hold under this machine's limits, up to the largest configuration, 4 MiB. */
static uint32_t largestAnswer() {
    const Peer peer;
    int room = 0;
    socklen_t length = sizeof room;
    EXPECT_EQ(getsockopt(peer.fd(), SOL_SOCKET, SO_SNDBUF, &room, &length), 0);
    return std::min(4U << 20, static_cast<uint32_t>(room) / 2); /* the kernel reports twice the size that may be used */
}

TEST(RunningConfig, ALargeConfigurationComesInOneAnswer) {
    static const uint32_t kSize = largestAnswer();
    EXPECT_GT(kSize, uint32_t{VOS_MSG_BUFFER_LEN}) << "nothing that any other message could not hold";
    Process server = building([](char *text, int32_t *room, uint32_t, uint32_t) {
        memset(text, 'c', kSize);
        *room = 0;
        return 0;
    });
    run([] {
        std::string text(kSize, '.');
        uint32_t length = kSize;
        EXPECT_EQ(vosMsgBldrunSend("A", text.data(), &length, 0, 0), VOS_OK);
        EXPECT_EQ(length, 0u);
        EXPECT_EQ(text, std::string(kSize, 'c'));
    });
}

TEST(RunningConfig, ACapacityOf32OrLessIsRefusedWithoutASocketOrALine) {
    const Outcome outcome = run([] {
        char text[64];
        for (uint32_t length : {0u, 31u, 32u}) {
            EXPECT_THAT(Faults::record([&] { EXPECT_EQ(vosMsgBldrunSend("A", text, &length, 0, 0), VOS_ERROR); }),
                        IsEmpty());
        }
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(RunningConfig, NullPointersAreRefused) {
    const Outcome outcome = run([] {
        char text[64];
        uint32_t length = sizeof text;
        EXPECT_EQ(vosMsgBldrunSend(nullptr, text, &length, 0, 0), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgBldrunSend("A", nullptr, &length, 0, 0), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgBldrunSend("A", text, nullptr, 0, 0), VOS_ERR_PARAM);
    });
    EXPECT_THAT(outcome.messages(), testing::Each("vosMsgBldrunSend:parameter error."));
    EXPECT_EQ(outcome.messages().size(), 3u);
}

TEST(RunningConfig, WithoutABuilderTheRequesterGetsMinusThree) {
    Process server = building(nullptr);
    run([] {
        char text[64];
        uint32_t length = sizeof text;
        EXPECT_EQ(vosMsgBldrunSend("A", text, &length, 0, 0), VOS_ERR_NO_HANDLER);
        EXPECT_EQ(length, 64u);
    });
    server.awaitOutput("vosMsgProcessInternel:bldrun when g_vosBldrunProc is null.");
}

TEST(RunningConfig, TheCodeOfTheBuilderIsReturned) {
    Process server = building([](char *, int32_t *, uint32_t, uint32_t) { return -77; });
    run([] {
        char text[64];
        uint32_t length = sizeof text;
        EXPECT_EQ(vosMsgBldrunSend("A", text, &length, 0, 0), -77);
        EXPECT_EQ(length, 64u);
    });
}

TEST(RunningConfig, TheAnswerIsTheRequestsHeaderWithTheFreeBytesAndTheText) {
    serving({message({.type = 0, .noReturn = 1, .value1 = 5, .value2 = 6, .length = 164})}, writeHundred,
            [](Peer &client) {
                EXPECT_EQ(client.receive(),
                          message({.type = 0, .noReturn = 1, .value1 = 5, .value2 = 6, .value3 = 64, .length = 100},
                                  std::string(100, 'c')));
                EXPECT_EQ(client.sender, "/tmp/vos/AHigh");
            });
}

TEST(RunningConfig, ACapacityThatNoAnswerCarriesIsRefusedLikeAFailedAllocation) {
    const Outcome outcome = serving(
        {message({.type = 0, .length = 4194305}), message({.type = 0, .length = 0xFFFFFFFF})}, writeHundred,
        [](Peer &client) {
            EXPECT_EQ(client.receive(), message({.type = 0, .retCode = static_cast<uint32_t>(-5), .length = 4194305}));
            EXPECT_EQ(client.receive().wordAt(8), static_cast<uint32_t>(-5));
        });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgProcessInternel:bldrun malloc 4194305 failed.",
                                                "vosMsgProcessInternel:bldrun malloc -1 failed."));
}

TEST(RunningConfig, ACapacityOfZeroIsAnsweredWithoutAText) {
    serving(
        {message({.type = 0})}, [](char *, int32_t *room, uint32_t, uint32_t) { return *room; },
        [](Peer &client) { EXPECT_EQ(client.receive(), message({.type = 0})); });
}

TEST(RunningConfig, ABuilderThatLeavesMoreBytesFreeThanTheBufferHasIsRefused) {
    for (const int32_t left : {-1, 65, 0x7FFFFFFF}) {
        const Outcome outcome = serving(
            {kRequest},
            [=](char *, int32_t *room, uint32_t, uint32_t) {
                *room = left;
                return 0;
            },
            [](Peer &client) {
                EXPECT_EQ(client.receive(), message({.type = 0, .retCode = 0xFFFFFFFF, .length = 64}));
            });
        EXPECT_THAT(outcome.messages(),
                    ElementsAre("vosMsgProcessInternel:bldrun handler left " + std::to_string(left) + " of 64 bytes."));
    }
}

TEST(RunningConfig, FailingCallsOfTheResponderAreNamed) {
    const auto prepare = [] {
        openChannel("A");
        builder = writeHundred;
        vosMsgRegisterBldrun(build);
        EXPECT_TRUE(stay("/tmp/vos/client")->send("/tmp/vos/AHigh", message({.type = 0, .length = 164})));
    };
    const auto serve = [] { return long{receive(100, 0).result}; };
    const Attempt memory = failCall({.call = "calloc"}, prepare, serve);
    EXPECT_THAT(memory.messages, ElementsAre("vosMsgProcessInternel:bldrun malloc 164 failed."));
    const Attempt send = failCall({.call = "sendmsg"}, prepare, serve);
    EXPECT_THAT(send.messages, ElementsAre(errnoLine("vosMsgSendStream1:sendmsg", EIO),
                                           "vosMsgProcessInternel:bldrun vosMsgSendStream1 failed."));
    expectNothingKept({memory, send});
}

TEST(RunningConfig, EachFailingCallOfTheRequesterIsNamedAndSocketAndPathAreGone) {
    const auto prepare = [] {
        freshWorld();
        stay("/tmp/vos/AHigh");
    };
    const auto send = [] {
        char text[64];
        uint32_t length = sizeof text;
        const long result = vosMsgBldrunSend("A", text, &length, 0, 0);
        EXPECT_EQ(requesterPathsLeft(), 0);
        return result;
    };
    const std::pair<const char *, std::vector<std::string>> expected[] = {
        {"socket", {"vosMsgBldrunSend:vosMsgLocalSocket failed."}},
        {"bind", {"vosMsgBldrunSend:local bind iSocketFd "}},
        {"connect", {errnoLine("vosMsgBldrunSend:connect", EIO)}},
        {"write", {errnoLine("vosMsgBldrunSend:write", EIO)}},
        {"recvmsg", {errnoLine("vosMsgRecvStream1:recvmsg", EIO), "vosMsgBldrunSend:vosMsgRecvStream1 failed."}},
    };
    for (const auto &[call, lines] : expected) {
        const Attempt attempt = failCall({.call = call}, prepare, send);
        EXPECT_EQ(attempt.result, VOS_ERROR) << call;
        ASSERT_EQ(attempt.messages.size(), lines.size()) << call;
        for (std::size_t i = 0; i < lines.size(); ++i) EXPECT_THAT(attempt.messages[i], StartsWith(lines[i]));
        expectNothingKept({attempt});
    }
}

namespace {

/* Sends a request to a responder of the test. */
Outcome answeredWith(const Bytes &answer, int32_t result, uint32_t room) {
    return run([&] {
        strcpy(szVosProcName, "scenario");
        Peer responder{"/tmp/vos/AHigh"};
        std::thread other([&] {
            EXPECT_EQ(responder.receive(), message({.type = 0, .value1 = 1, .value2 = 2, .length = 64}));
            EXPECT_TRUE(responder.send(responder.sender, answer));
        });
        char text[65] = {};
        uint32_t length = 64;
        EXPECT_EQ(vosMsgBldrunSend("A", text, &length, 1, 2), result);
        EXPECT_EQ(length, room);
        EXPECT_EQ(text[64], 0);
        other.join();
    });
}

}  // namespace

TEST(RunningConfig, AShortAnswerIsOnlyTraced) {
    EXPECT_THAT(answeredWith(message({.value3 = 60}, "text"), VOS_OK, 60).messages(), IsEmpty());
}

TEST(RunningConfig, AnAnswerWithMoreFreeBytesThanTheBufferHasIsRefused) {
    EXPECT_THAT(answeredWith(message({.value3 = 65}), VOS_ERROR, 64).messages(),
                ElementsAre("vosMsgBldrunSend:answer of 32 bytes leaves 65 of 64."));
    EXPECT_THAT(answeredWith(message({.value3 = 0xFFFFFFFF}), VOS_ERROR, 64).messages(),
                ElementsAre("vosMsgBldrunSend:answer of 32 bytes leaves 4294967295 of 64."));
}

TEST(RunningConfig, AnAnswerWithoutAWholeHeaderIsRefused) {
    EXPECT_THAT(answeredWith({}, VOS_ERROR, 64).messages(),
                ElementsAre("vosMsgBldrunSend:answer of 0 bytes leaves 0 of 64."));
    EXPECT_THAT(answeredWith(Bytes{}.fill(31), VOS_ERROR, 64).messages(),
                ElementsAre("vosMsgBldrunSend:answer of 31 bytes leaves 0 of 64."));
}

TEST(RunningConfig, AnAnswerThatLacksTheTextItAnnouncesIsRefused) {
    EXPECT_THAT(answeredWith(message({.value3 = 0}), VOS_ERROR, 64).messages(),
                ElementsAre("vosMsgBldrunSend:answer of 32 bytes leaves 0 of 64."));
    EXPECT_THAT(answeredWith(message({.value3 = 60}, "tex"), VOS_ERROR, 64).messages(),
                ElementsAre("vosMsgBldrunSend:answer of 35 bytes leaves 60 of 64."));
    EXPECT_THAT(answeredWith(message({.value3 = 64}), VOS_OK, 64).messages(), IsEmpty());
}

TEST(RunningConfig, AnAnswerLongerThanTheBufferIsCut) {
    answeredWith(message({.value3 = 0}, std::string(200, 't')), VOS_OK, 0);
}

TEST(RunningConfig, AShortWriteIsLogged) {
    const Outcome outcome = run([] {
        strcpy(szVosProcName, "scenario");
        Peer responder{"/tmp/vos/AHigh"};
        std::thread other([&] {
            responder.receive();
            EXPECT_TRUE(responder.send(responder.sender, message({.retCode = 1})));
        });
        Faults::arm({.call = "write", .shortTo = 8});
        char text[64];
        uint32_t length = sizeof text;
        EXPECT_EQ(vosMsgBldrunSend("A", text, &length, 0, 0), 1);
        EXPECT_TRUE(Faults::disarm());
        other.join();
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgBldrunSend:write need send 32 but send only 8."));
}

TEST(RunningConfig, ARequesterWhosePathFillsItsAddressIsAnswered) {
    run([] {
        openChannel("A");
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        memset(address.sun_path, 'c', sizeof address.sun_path);
        memcpy(address.sun_path, "/tmp/vos/", 9);
        Peer client;
        ASSERT_EQ(bind(client.fd(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        EXPECT_TRUE(client.send("/tmp/vos/AHigh", kRequest));
        vosDebugConfig(0);
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        EXPECT_EQ(client.receive().wordAt(8), static_cast<uint32_t>(VOS_ERR_NO_HANDLER));
    });
}
