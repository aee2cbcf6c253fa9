/* SPDX-License-Identifier: MIT */
/* Requests and answers: both ends of vosMsgSend() and vosMsgResp(). */
#include "peer.h"

using namespace vostest;
using testing::Contains;
using testing::ElementsAre;
using testing::Gt;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

/* A server that answers one request with a code and a text. */
Process answering(uint32_t code, const std::string &text) {
    Process server = start([=] {
        openChannel("B");
        ready();
        Received request = receive();
        EXPECT_GE(request.result, 0);
        EXPECT_EQ(vosMsgResp(0, code, text.data(), static_cast<uint32_t>(text.size()), &request.peer), VOS_OK);
    });
    server.awaitReady();
    return server;
}

/* Answers the next request to a plain socket. */
void answerFrom(Peer &peer, const Bytes &answer) {
    peer.receive();
    EXPECT_TRUE(peer.send(peer.sender, answer));
}

}  // namespace

TEST(Request, AnswerCodeAndPayloadComeBack) {
    Process server = answering(7, "pong");
    run([] {
        uint32_t code = 0;
        char text[] = "ping and more";
        EXPECT_EQ(vosMsgSend("B", text, sizeof text, 0, &code, 3000, 0), VOS_OK);
        EXPECT_EQ(code, 7u);
        EXPECT_STREQ(text, "pong and more");
        EXPECT_EQ(requesterPathsLeft(), 0);
    });
    server.finish();
}

TEST(Request, AShortAnswerIsLoggedAndCountsAsSuccess) {
    Process server = answering(7, "pong");
    const Outcome outcome = run([] {
        uint32_t code = 0;
        char text[100] = "ping";
        EXPECT_EQ(vosMsgSend("B", text, sizeof text, 0, &code, 3000, 0), VOS_OK);
    });
    EXPECT_THAT(withoutTuning(outcome.messages()), ElementsAre("vosMsgSend:read need read 132 but read only 36."));
}

TEST(Request, AnAnswerLongerThanTheRequestIsCutToTheBuffer) {
    Process server = answering(0, "a long answer");
    run([] {
        uint32_t code = 1;
        char text[] = "ping####";
        EXPECT_EQ(vosMsgSend("B", text, 4, 0, &code, 3000, 0), VOS_OK);
        EXPECT_STREQ(text, "a lo####");
    });
}

TEST(Request, TheWireHoldsTypeNoReturnMarkAndLength) {
    run([] {
        Peer normal{"/tmp/vos/B"};
        char text[] = "ping";
        EXPECT_EQ(vosMsgSend("B", text, 4, 1, nullptr, 3000, 0), VOS_OK);
        const Bytes sent = normal.receive();
        ASSERT_EQ(sent.size(), 36u);
        EXPECT_EQ(sent, message({.type = 8, .noReturn = 1, .value1 = 254, .length = 4}, "ping"));
        EXPECT_THAT(normal.sender, StartsWith("/tmp/vos/clientp" + std::to_string(getpid()) + "t"));
    });
}

TEST(Request, AnAnswerCarriesCodeMarkAndLength) {
    run([] {
        openChannel("A");
        Peer client{"/tmp/vos/client"};
        EXPECT_TRUE(client.send("/tmp/vos/A", application("ping")));
        const Received request = receive();
        EXPECT_EQ(vosMsgResp(0, 0xFFFFFFFD, "pong", 4, &request.peer), VOS_OK);
        EXPECT_EQ(client.receive(), message({.type = 8, .retCode = 0xFFFFFFFD, .value1 = 255, .length = 4}, "pong"));
        EXPECT_EQ(client.sender, "/tmp/vos/A");
        EXPECT_EQ(vosMsgResp(0, 9, "", 0, &request.peer), VOS_OK);
        EXPECT_EQ(client.receive(), message({.type = 8, .retCode = 9, .value1 = 255}));
    });
}

TEST(Request, ARequestToTheHighSocketIsAnsweredFromIt) {
    run([] {
        openChannel("A");
        Peer client{"/tmp/vos/client"};
        EXPECT_TRUE(client.send("/tmp/vos/AHigh", application("ping")));
        const Received request = receive();
        EXPECT_EQ(vosMsgResp(0, 1, "pong", 4, &request.peer), VOS_OK);
        client.receive();
        EXPECT_EQ(client.sender, "/tmp/vos/AHigh");
    });
}

TEST(Request, WithoutAnAnswerTheTimeOutEndsTheWait) {
    const Outcome outcome = run([] {
        Peer silent{"/tmp/vos/B"};
        char text[] = "ping";
        uint32_t code = 77;
        const auto before = std::chrono::steady_clock::now();
        EXPECT_EQ(vosMsgSend("B", text, 4, 0, &code, 300, 0), VOS_ERROR);
        EXPECT_GE(std::chrono::steady_clock::now() - before, Milliseconds(290));
        EXPECT_EQ(code, 77u);
        EXPECT_EQ(requesterPathsLeft(), 0);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(errnoLine("vosMsgSend:read", EAGAIN)));
}

TEST(Request, NoReturnOfTwoDoesNotWaitAndTheAnswerFindsNoSocket) {
    const Outcome outcome = run([] {
        openChannel("A");
        char text[] = "ping";
        EXPECT_EQ(vosMsgSend("A", text, 4, 2, nullptr, 3000, 0), VOS_OK);
        const Received request = receive();
        EXPECT_EQ(request.peer.ulNoReturn, 2u);
        EXPECT_EQ(vosMsgResp(0, 0, "pong", 4, &request.peer), VOS_ERROR);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(errnoLine("vosMsgResp:sendmsg", ENOENT)));
}

TEST(Request, TheNoWaitFlagDoesNotWaitAndTheReceiverStillAnswers) {
    const Outcome outcome = run([] {
        openChannel("A");
        char text[] = "ping";
        EXPECT_EQ(vosMsgSend("A", text, 4, 0, nullptr, 3000, 2), VOS_OK);
        const Received request = receive();
        EXPECT_EQ(request.peer.ulNoReturn, 0u);
        EXPECT_EQ(vosMsgResp(0, 0, "pong", 4, &request.peer), VOS_ERROR);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(errnoLine("vosMsgResp:sendmsg", ENOENT)));
}

TEST(Request, NoReturnOfOneSuppressesTheAnswer) {
    const Outcome outcome = run([] {
        openChannel("A");
        char text[] = "ping";
        EXPECT_EQ(vosMsgSend("A", text, 4, 1, nullptr, 3000, 0), VOS_OK);
        const Received request = receive();
        vosDebugConfig(VOS_DEBUG_TRACE);
        EXPECT_THAT(Faults::record([&] { EXPECT_EQ(vosMsgResp(0, 0, "pong", 4, &request.peer), VOS_OK); }), IsEmpty());
        vosDebugConfig(0);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgResp:start.", "vosMsgResp:don't need return."));
}

TEST(Request, TheLargestPayloadIsSentAndOneByteMoreIsRefused) {
    const Outcome outcome = run([] {
        Peer normal{"/tmp/vos/B"};
        std::string text(64569, 'x');
        VOS_MSG_PEER peer{};
        EXPECT_EQ(vosMsgSend("B", text.data(), 64568, 1, nullptr, 3000, 0), VOS_OK);
        EXPECT_EQ(normal.receive().size(), 64600u);
        EXPECT_EQ(vosMsgSend("B", text.data(), 64569, 1, nullptr, 3000, 0), VOS_ERR_TOO_LONG);
        EXPECT_EQ(vosMsgSend("B", text.data(), 0xFFFFFFFF, 1, nullptr, 3000, 0), VOS_ERR_TOO_LONG);
        EXPECT_EQ(vosMsgResp(0, 0, text.data(), 64569, &peer), VOS_ERR_TOO_LONG);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgSend:ulMsgSize too long.", "vosMsgSend:ulMsgSize too long.",
                                                "vosMsgResp:ulMsgSize too long."));
}

TEST(Request, NullPointersAreRefused) {
    const Outcome outcome = run([] {
        char text[] = "ping";
        const VOS_MSG_PEER peer{};
        EXPECT_EQ(vosMsgSend(nullptr, text, 4, 1, nullptr, 3000, 0), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgSend("B", nullptr, 4, 1, nullptr, 3000, 0), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgResp(0, 0, nullptr, 4, &peer), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgResp(0, 0, text, 4, nullptr), VOS_ERR_PARAM);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgSend:parameter error.", "vosMsgSend:parameter error.",
                                                "vosMsgResp:parameter error.", "vosMsgResp:parameter error."));
}

TEST(Request, AReceiverThatDoesNotRunFailsAtOnce) {
    const Outcome outcome = run([] {
        openChannel("A");
        char text[] = "ping";
        uint32_t code = 0;
        EXPECT_EQ(vosMsgSend("nobody", text, 4, 0, &code, 3000, 0), VOS_ERROR);
        EXPECT_EQ(vosMsgSend("nobody", text, 4, 0, &code, 3000, 1), VOS_ERROR);
        EXPECT_EQ(requesterPathsLeft(), 0);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(errnoLine("vosMsgSend:connect /tmp/vos/nobody", ENOENT),
                                                errnoLine("vosMsgSend:connect /tmp/vos/nobodyHigh", ENOENT)));
}

TEST(Request, ANameTooLongForTheAddressIsRefusedByTheKernelAndNeverReachesAnotherProcess) {
    for (const std::size_t length : {99u, 100u, 118u, 119u, 300u}) {
        const Outcome outcome = run([=] {
            const std::string name(length, 'n');
            /* the process that could be reached under the part of the name that fits */
            Peer other{"/tmp/vos/" + std::string(98, 'n')};
            char text[] = "ping";
            EXPECT_EQ(vosMsgSend(name.c_str(), text, 4, 1, nullptr, 3000, 0), VOS_ERROR);
            EXPECT_FALSE(other.hasMail());
        });
        EXPECT_THAT(outcome.messages(), ElementsAre(StartsWith("vosMsgSend:connect /tmp/vos/nnn"))) << length;
    }
}

TEST(Request, ANameWithPercentSignsIsShownAsItIs) {
    const Outcome outcome = run([] {
        openChannel("A");
        char text[] = "ping";
        EXPECT_EQ(vosMsgSend("%s%n", text, 4, 1, nullptr, 3000, 0), VOS_ERROR);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(errnoLine("vosMsgSend:connect /tmp/vos/%s%n", ENOENT)));
}

TEST(Request, ItsTraceShowsTheSocketAndTheResult) {
    const Outcome outcome = run([] {
        Peer normal{"/tmp/vos/B"};
        char text[] = "ping";
        vosDebugConfig(VOS_DEBUG_TRACE);
        EXPECT_EQ(vosMsgSend("B", text, 4, 1, nullptr, 3000, 0), VOS_OK);
        vosDebugConfig(0);
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosMsgSend:start.", testing::MatchesRegex("vosMsgSend:create socket [0-9]+\\."),
                            "vosMsgSend:end return 0."));
}

/* One request and one serve make exactly these calls. A change that adds a call fails these tests. */
TEST(Request, ARequestMakesExactlyTheseCalls) {
    run([] {
        freshWorld();
        Peer normal{"/tmp/vos/B"};
        knowProcessId();
        const int blocks = Faults::liveBlocks();
        char text[] = "ping";
        uint32_t code = 0;
        std::vector<std::string> calls;
        const pid_t responder = fork();
        if (responder == 0) {
            answerFrom(normal, message({.retCode = 5, .value1 = 255, .length = 4}, "pong"));
            _exit(0);
        }
        calls = Faults::record([&] { EXPECT_EQ(vosMsgSend("B", text, 4, 0, &code, 20000, 0), VOS_OK); });
        EXPECT_EQ(code, 5u);
        EXPECT_THAT(calls, ElementsAre("socket", "setsockopt", "setsockopt", "unlink", "bind", "setsockopt",
                                       "setsockopt", "connect", "sendmsg", "recvmsg", "unlink", "close"));
        EXPECT_EQ(Faults::liveBlocks(), blocks);
    });
}

TEST(Request, AServeMakesExactlyTheseCalls) {
    run([] {
        openChannel("A");
        Peer client{"/tmp/vos/client"};
        Received request;
        for (const char *const path : {"/tmp/vos/A", "/tmp/vos/AHigh"}) {
            EXPECT_TRUE(client.send(path, application("ping")));
            EXPECT_THAT(Faults::record([&] {
                            EXPECT_GT(vosMsgRecv(0, request.bytes.data(), 0, 20000, &request.peer), -1);
                            EXPECT_EQ(vosMsgResp(0, 0, "pong", 4, &request.peer), VOS_OK);
                        }),
                        ElementsAre("select", "recvfrom", "sendmsg"));
        }
    });
}

TEST(Request, EachFailingCallIsNamedAndSocketAndPathAreGone) {
    const auto prepare = [] {
        freshWorld();
        stay("/tmp/vos/B");
    };
    struct Expected {
        const char *call;
        std::string line;
    };
    const Expected expected[] = {
        {"socket", "vosMsgSend:vosMsgLocalSocket failed."},
        {"bind", "vosMsgSend:local bind iSocketFd "},
        {"connect", errnoLine("vosMsgSend:connect /tmp/vos/B", EIO)},
        {"sendmsg", errnoLine("vosMsgSend:sendmsg", EIO)},
        {"recvmsg", errnoLine("vosMsgSend:read", EIO)},
    };
    for (const Expected &each : expected) {
        const Attempt attempt = failCall({.call = each.call}, prepare, [&] {
            char text[] = "ping";
            uint32_t code = 0;
            const long result = vosMsgSend("B", text, 4, 0, &code, 100, 0);
            EXPECT_EQ(requesterPathsLeft(), 0);
            return result;
        });
        EXPECT_EQ(attempt.result, VOS_ERROR) << each.call;
        EXPECT_THAT(attempt.messages, ElementsAre(StartsWith(each.line))) << each.call;
        expectNothingKept({attempt});
    }
}

TEST(Request, AFailingTuningOrRemovalDoesNotStopIt) {
    const auto attempts = failEachCall(
        [] {
            freshWorld();
            stay("/tmp/vos/B");
        },
        [] {
            char text[] = "ping";
            return long{vosMsgSend("B", text, 4, 1, nullptr, 3000, 0)};
        });
    ASSERT_EQ(attempts.size(), 13u);
    for (const char *const call : {"setsockopt#1", "setsockopt#2", "madvise#1", "madvise#2", "unlink#1", "setsockopt#3",
                                   "setsockopt#4", "unlink#2"}) {
        EXPECT_EQ(at(attempts, call).result, VOS_OK) << call;
        EXPECT_EQ(at(attempts, call).descriptorsKept, 0) << call;
    }
    EXPECT_THAT(at(attempts, "setsockopt#3").messages, ElementsAre("vosMsgSocketOptmize:SO_SNDBUF failed."));
    EXPECT_THAT(at(attempts, "setsockopt#4").messages, ElementsAre("vosMsgSocketOptmize:SO_RCVBUF failed."));
    EXPECT_EQ(at(attempts, "close#1").result, VOS_OK);
}

TEST(Request, WithDescriptorOneClosedTheLogLinesGoOutThroughItsSocket) {
    run([] {
        Peer receiver{"/tmp/vos/B"};
        close(STDOUT_FILENO);
        char text[] = "ping"; /* no process answers, so a line is written before the socket is closed */
        EXPECT_EQ(vosMsgSend("B", text, sizeof text, 0, nullptr, 20, 0), VOS_ERROR);
        bool line = false;
        while (!line && receiver.hasMail()) {
            const Bytes bytes = receiver.receive();
            line = std::string(bytes.begin(), bytes.end()).find("vosMsgSend:") != std::string::npos;
        }
        EXPECT_TRUE(line);
    });
}

TEST(Request, AShortSendIsLoggedAndCountsAsSuccess) {
    const Attempt request = failCall(
        {.call = "sendmsg", .shortTo = 10},
        [] {
            freshWorld();
            stay("/tmp/vos/B");
        },
        [] {
            char text[] = "ping";
            return long{vosMsgSend("B", text, 4, 1, nullptr, 3000, 0)};
        });
    EXPECT_EQ(request.result, VOS_OK);
    EXPECT_THAT(request.messages, ElementsAre("vosMsgSend:write need send 36 but send only 10."));
}

TEST(Answer, AFailingSendIsNamedAndAShortOneLogged) {
    static VOS_MSG_PEER peer;
    const auto prepare = [] {
        openChannel("A");
        const Peer *const client = stay("/tmp/vos/client");
        EXPECT_TRUE(client->send("/tmp/vos/A", application("ping")));
        peer = receive().peer;
    };
    const auto respond = [] { return long{vosMsgResp(0, 0, "pong", 4, &peer)}; };
    const auto attempts = failEachCall(prepare, respond);
    ASSERT_EQ(attempts.size(), 1u);
    EXPECT_EQ(attempts[0].result, VOS_ERROR);
    EXPECT_THAT(attempts[0].messages, ElementsAre(errnoLine("vosMsgResp:sendmsg", EIO)));
    expectNothingKept(attempts);
    const Attempt cut = failCall({.call = "sendmsg", .shortTo = 8}, prepare, respond);
    EXPECT_EQ(cut.result, VOS_OK);
    EXPECT_THAT(cut.messages, ElementsAre("vosMsgResp:sendto need send 36 but send only 8."));
}

TEST(Answer, APeerRecordWithANonsensicalLengthIsRefusedByTheKernel) {
    run([] {
        openChannel("A");
        VOS_MSG_PEER peer{};
        peer.iSocketFd = g_vosFdProc;
        vosDebugConfig(0);
        for (const uint32_t length : {0u, 1u, 110u, 111u, 128u, 129u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
            peer.ulAddrLen = length;
            EXPECT_EQ(vosMsgResp(0, 0, "pong", 4, &peer), VOS_ERROR) << length;
        }
    });
}

TEST(Answer, APathOfAllCharactersOfAnAddressIsAnswered) {
    run([] {
        openChannel("A");
        const std::string path = "/tmp/vos/" + std::string(99, 'c');
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        ASSERT_EQ(path.copy(address.sun_path, sizeof address.sun_path), sizeof address.sun_path);
        Peer client;
        ASSERT_EQ(bind(client.fd(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        EXPECT_TRUE(client.send("/tmp/vos/A", application("ping")));
        const Received request = receive();
        EXPECT_EQ(request.peer.ulAddrLen, 111u); /* as the kernel reports it */
        EXPECT_EQ(vosMsgResp(0, 7, "pong", 4, &request.peer), VOS_OK);
        EXPECT_EQ(vosMsgResp2(0, 7, "pong", 4, &request.peer), VOS_OK);
        EXPECT_EQ(client.receive().textAt(32, 4), "pong");
        EXPECT_EQ(client.receive().textAt(32, 4), "pong");
    });
}
