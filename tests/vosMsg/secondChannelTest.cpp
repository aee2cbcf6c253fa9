/* SPDX-License-Identifier: MIT */
/* The second channel. Each difference from the main one has a test. */
#include <fcntl.h>
#include <linux/netlink.h>

#include <atomic>
#include <thread>

#include "peer.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

int reserved;

int32_t open2(const char *name = "b", uint32_t flags = 1) { return vosMsgInit2(name, flags, &reserved); }

void openBoth(uint32_t flags = 1) {
    openChannel("a", flags);
    vosDebugConfig(0);
    EXPECT_EQ(open2(), VOS_OK);
    vosDebugConfig(VOS_DEBUG_ERROR);
}

Received receive2(uint32_t size = 100, uint32_t timeoutMs = 20000) {
    Received received{0, std::string(size, '.'), {}};
    received.result = vosMsgRecv2(0, received.bytes.data(), size, timeoutMs, &received.peer);
    return received;
}

int fired;
void count(uint32_t, uint64_t) { ++fired; }

VOS_MSG_TIMER *timer2(uint32_t periodic, uint32_t ms) {
    VOS_MSG_TIMER *handle = nullptr;
    EXPECT_EQ(vosTimerRegister2(periodic, ms, count, &handle, 0), VOS_OK);
    return handle;
}

}  // namespace

TEST(SecondChannel, ItOpensAPairOfItsOwnBesideTheMainChannel) {
    const Outcome outcome = run([] {
        openBoth(3);
        EXPECT_TRUE(exists("/tmp/vos/b"));
        EXPECT_TRUE(exists("/tmp/vos/bHigh"));
        EXPECT_NE(g_vosFdProc, g_vosFdProc_thread);
        EXPECT_NE(g_vosFdProcHigh, g_vosFdProcHigh_thread);
        printf("\r\n%d %d", g_vosFdProc_thread, g_vosFdProcHigh_thread);
        EXPECT_EQ(open2(), VOS_ERR_EXIST);
        g_vosFdProc_thread = -1;
        EXPECT_EQ(open2(), VOS_ERR_EXIST);
    });
    const auto lines = outcome.messages();
    ASSERT_EQ(lines.size(), 3u);
    int normal = 0;
    int high = 0;
    sscanf(lines[0].c_str(), "%d %d", &normal, &high);
    EXPECT_EQ(lines[1], "vosMsgInit2:g_vosFdProc " + std::to_string(normal) + " exist.");
    EXPECT_EQ(lines[2], "vosMsgInit2:g_vosFdProcHigh " + std::to_string(high) + " exist.");
}

TEST(SecondChannel, TheNetlinkFlagIsIgnored) {
    run([] {
        freshWorld();
        EXPECT_THAT(Faults::record([] { EXPECT_EQ(open2("b", 2), VOS_OK); }), IsEmpty());
        EXPECT_FALSE(exists("/tmp/vos"));
        EXPECT_EQ(g_vosFdNLUni, -1);
        EXPECT_EQ(g_vosFdProc_thread, -1);
    });
}

TEST(SecondChannel, TheDirectoryIsNotMadeHere) {
    const Outcome outcome = run([] {
        freshWorld();
        EXPECT_EQ(open2(), VOS_ERROR);
        EXPECT_FALSE(exists("/tmp/vos"));
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(StartsWith("vosMsgInit2:local bind iSocketFd ")));
}

TEST(SecondChannel, NullArgumentsAreRefused) {
    const Outcome outcome = run([] {
        EXPECT_EQ(vosMsgInit2(nullptr, 1, &reserved), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgInit2("b", 1, nullptr), VOS_ERR_PARAM);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgInit2:parameter error.", "vosMsgInit2:parameter error."));
}

TEST(SecondChannel, EachFailingCallOfInitIsNamedAndTheDescribedSocketsStayOpen) {
    const auto attempts = failEachCall(
        [] {
            freshWorld();
            mkdir("/tmp/vos", 0777);
        },
        [] { return long{open2()}; });
    ASSERT_EQ(attempts.size(), 18u); /* the main channel's calls without its mkdir */
    const std::pair<const char *, std::string> failing[] = {
        {"socket#1", "vosMsgInit2:local socket failed."},
        {"socket#2", "vosMsgInit2:local high socket failed."},
        {"bind#1", "vosMsgInit2:local bind iSocketFd "},
        {"bind#2", "vosMsgInit2:local bind high  iSocketFd "},
    };
    for (const auto &[call, line] : failing) {
        EXPECT_EQ(at(attempts, call).result, VOS_ERROR) << call;
        EXPECT_THAT(withoutTuning(at(attempts, call).messages), ElementsAre(StartsWith(line))) << call;
        EXPECT_EQ(at(attempts, call).descriptorsKept, std::string(call) == "socket#1" ? 0 : 1) << call;
    }
}

TEST(SecondChannel, ItsLoopLogsUnderItsOwnNameAndCountsLengthsAsTheMainLoopDoes) {
    const Outcome outcome = run([] {
        openBoth();
        const Peer peer;
        EXPECT_TRUE(peer.send("/tmp/vos/b", application("12345678")));
        EXPECT_TRUE(peer.send("/tmp/vos/bHigh", application("12345678")));
        vosDebugConfig(VOS_DEBUG_TRACE);
        const Received high = receive2();
        EXPECT_EQ(high.result, 8);
        EXPECT_EQ(high.peer.iSocketFd, g_vosFdProcHigh_thread);
        const Received normal = receive2();
        vosDebugConfig(0);
        EXPECT_EQ(normal.result, 40);
        EXPECT_EQ(normal.bytes.substr(0, 8), "12345678");
        EXPECT_EQ(normal.peer.iSocketFd, g_vosFdProc_thread);
        EXPECT_EQ(memcmp(&g_vosMsgBufferRecv_thread[32], "12345678", 8), 0);
        EXPECT_EQ(g_vosMsgBufferRecv[32], 0);
    });
    EXPECT_THAT(
        outcome.messages(),
        ElementsAre("vosMsgRecv2:start.", "vosMsgRecvStream:start.", "vosMsgRecvStream:end return 40.",
                    "vosMsgRecv2:high receive VOS_MSG_TYPE_SELF.", "vosMsgRecv2:start.", "vosMsgRecvStream:start.",
                    "vosMsgRecvStream:end return 40.", "vosMsgRecv2:receive VOS_MSG_TYPE_SELF."));
}

TEST(SecondChannel, ItsReceiveChecksItsOwnSockets) {
    const Outcome outcome = run([] {
        openChannel("a");
        VOS_MSG_PEER peer;
        char text[8];
        EXPECT_EQ(vosMsgRecv2(0, text, 8, 0, nullptr), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgRecv2(0, text, 8, 0, &peer), VOS_ERR_NOT_INIT);
        g_vosFdProc_thread = 0;
        EXPECT_EQ(vosMsgRecv2(0, text, 8, 0, &peer), VOS_ERR_NOT_INIT);
        g_vosFdProcHigh_thread = 0;
        EXPECT_EQ(vosMsgRecv2(0, text, 64569, 0, &peer), VOS_ERR_PARAM);
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosMsgRecv2:parameter error.", "vosMsgRecv2:msg is not initial.",
                            "vosMsgRecv2:high msg is not initial.", "vosMsgRecv2:ulMsgSize too long."));
}

TEST(SecondChannel, FailingCallsOfTheReceiveEndItWithTheirLines) {
    const auto attempts = failEachCall(
        [] {
            openBoth();
            EXPECT_TRUE(Peer{}.send("/tmp/vos/b", application("")));
        },
        [] { return long{receive2().result}; });
    ASSERT_EQ(attempts.size(), 2u);
    EXPECT_THAT(at(attempts, "select#1").messages, ElementsAre(errnoLine("vosMsgRecv2:select", EIO)));
    EXPECT_THAT(at(attempts, "recvfrom#1").messages,
                ElementsAre(errnoLine("vosMsgRecvStream:recvfrom", EIO), "vosMsgRecv2:vosMsgRecvStream failed."));
    for (const Attempt &each : attempts) EXPECT_EQ(each.result, VOS_ERROR);
}

TEST(SecondChannel, TheKernelsSocketIsNotInItsSet) {
    run([] {
        openBoth(3);
        static int seen;
        vosMsgRegisterPortLink(0, [](uint32_t, uint32_t) { return int32_t{++seen}; });
        const int kernel = socket(AF_NETLINK, SOCK_RAW, NETLINK_USERSOCK);
        sockaddr_nl to{};
        to.nl_family = AF_NETLINK;
        to.nl_pid = static_cast<uint32_t>(getpid());
        const Bytes datagram = Bytes{}.fill(16).word(VOS_MSG_TYPE_LINK).fill(28);
        EXPECT_EQ(sendto(kernel, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr *>(&to), sizeof to),
                  48);
        EXPECT_EQ(receive2(100, 0).result, VOS_ERR_TIMEOUT);
        EXPECT_EQ(seen, 0);
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        EXPECT_EQ(seen, 1);
        close(kernel);
    });
}

TEST(SecondChannel, TheApplicationsDescriptorsAreWatchedByBothLoops) {
    run([] {
        openBoth();
        static int seen;
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        const auto take = [](int32_t fd, void *) {
            char byte = 0;
            EXPECT_EQ(read(fd, &byte, 1), 1);
            return int32_t{++seen};
        };
        EXPECT_EQ(vosMsgSockAdd(ends[0], take, nullptr), VOS_OK);
        for (const bool second : {false, true}) {
            EXPECT_EQ(write(ends[1], "x", 1), 1);
            EXPECT_EQ((second ? receive2(100, 0) : receive(100, 0)).result, VOS_ERR_TIMEOUT);
            EXPECT_EQ(seen, second ? 2 : 1);
        }
        vosMsgSockDelete(ends[0]);
    });
}

TEST(SecondChannel, WithBothLoopsAwakeForOneDescriptorEachByteIsReadOnce) {
    run([] {
        openBoth();
        static std::atomic<int> bytes;
        constexpr int kBytes = 2000;
        static int ends[2];
        EXPECT_EQ(pipe2(ends, O_NONBLOCK), 0);
        const auto take = [](int32_t fd, void *) {
            char byte = 0;
            if (read(fd, &byte, 1) == 1) ++bytes; /* the other loop may have read it already */
            return 0;
        };
        EXPECT_EQ(vosMsgSockAdd(ends[0], take, nullptr), VOS_OK);
        std::thread second([] { EXPECT_EQ(receive2().result, 36); });
        std::thread writer([] {
            for (int i = 0; i < kBytes; ++i) EXPECT_EQ(write(ends[1], "x", 1), 1);
            EXPECT_TRUE(eventually([] { return bytes == kBytes; }));
            EXPECT_TRUE(Peer{}.send("/tmp/vos/a", application("last")));
            EXPECT_TRUE(Peer{}.send("/tmp/vos/b", application("last")));
        });
        EXPECT_EQ(receive().result, 36);
        second.join();
        writer.join();
        EXPECT_EQ(bytes, kBytes);
        vosMsgSockDelete(ends[0]);
    });
}

TEST(SecondChannel, ItsTimersFireOnlyInItsLoopAndTheMainCallsDoNotFindThem) {
    const Outcome outcome = run([] {
        openBoth();
        const int blocks = Faults::liveBlocks();
        VOS_MSG_TIMER *const handle = timer2(0, 0);
        EXPECT_EQ(g_pVosMsgTimerFirst2, handle);
        EXPECT_EQ(g_ulVosMsgMagic2, 1u);
        EXPECT_EQ(g_pVosMsgTimerFirst, nullptr);
        EXPECT_EQ(g_ulVosMsgMagic, 0u);
        EXPECT_EQ(vosTimerCancel(handle), VOS_ERROR);
        EXPECT_EQ(vosTimerStart(handle, 1), VOS_ERROR);
        EXPECT_EQ(vosTimerStop(handle), VOS_ERROR);
        EXPECT_EQ(handle->ulRunning, 1u);
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        EXPECT_EQ(fired, 0);
        EXPECT_EQ(receive2(100, 0).result, VOS_ERR_TIMEOUT);
        EXPECT_EQ(fired, 1);
        EXPECT_EQ(Faults::liveBlocks(), blocks);
        EXPECT_EQ(vosTimerRegister2(0, 1, count, nullptr, 0), VOS_ERR_PARAM);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosTimerRegister2:parameter error."));
}

TEST(SecondChannel, EachFailingCallOfATimersRegistrationIsNamed) {
    const auto attempts = failEachCall([] { strcpy(szVosProcName, "scenario"); },
                                       [] {
                                           VOS_MSG_TIMER *handle = nullptr;
                                           return long{vosTimerRegister2(0, 1, count, &handle, 0)};
                                       });
    ASSERT_EQ(attempts.size(), 2u);
    expectNothingKept(attempts);
    EXPECT_THAT(at(attempts, "calloc#1").messages, ElementsAre("vosTimerRegister2:malloc failed."));
    EXPECT_THAT(at(attempts, "gettimeofday#1").messages, ElementsAre(errnoLine("vosTimerRegister2:gettimeofday", EIO)));
}

TEST(SecondChannel, AnAnswerIsBuiltInItsBufferWithoutTheMark) {
    const Outcome outcome = run([] {
        openBoth();
        Peer client{"/tmp/vos/client"};
        EXPECT_TRUE(client.send("/tmp/vos/b", application("")));
        Received request = receive2();
        EXPECT_THAT(Faults::record([&] { EXPECT_EQ(vosMsgResp2(0, 9, "pong", 4, &request.peer), VOS_OK); }),
                    ElementsAre("sendto"));
        const Bytes answer = client.receive();
        EXPECT_EQ(answer, message({.type = 8, .retCode = 9, .length = 4}, "pong"));
        EXPECT_EQ(memcmp(g_vosMsgBufferResp_thread, answer.data(), answer.size()), 0);
        EXPECT_EQ(vosMsgResp2(0, 9, nullptr, 4, &request.peer), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgResp2(0, 9, "pong", 4, nullptr), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgResp2(0, 9, g_vosMsgBufferRecv, 64569, &request.peer), VOS_ERR_TOO_LONG);
        EXPECT_EQ(vosMsgResp2(0, 9, g_vosMsgBufferRecv_thread, 64568, &request.peer), VOS_OK);
        Faults::arm({.call = "sendto", .shortTo = 33});
        EXPECT_EQ(vosMsgResp2(0, 9, "pong", 4, &request.peer), VOS_OK);
        EXPECT_TRUE(Faults::disarm());
        Faults::arm({.call = "sendto"});
        EXPECT_EQ(vosMsgResp2(0, 9, "pong", 4, &request.peer), VOS_ERROR);
        EXPECT_TRUE(Faults::disarm());
        request.peer.ulNoReturn = 1;
        EXPECT_THAT(Faults::record([&] { EXPECT_EQ(vosMsgResp2(0, 9, "pong", 4, &request.peer), VOS_OK); }), IsEmpty());
    });
    EXPECT_THAT(
        outcome.messages(),
        ElementsAre("vosMsgResp2:parameter error.", "vosMsgResp2:parameter error.", "vosMsgResp2:ulMsgSize too long.",
                    "vosMsgResp2:sendto need send 36 but send only 33.", errnoLine("vosMsgResp2:sendto", EIO)));
}

TEST(SecondChannel, ARequestIsWrittenFromItsBufferWithoutTheMarkAndTheNoWaitFlagIsIgnored) {
    const Outcome outcome = run([] {
        freshWorld();
        Peer normal{"/tmp/vos/server"};
        Peer high{"/tmp/vos/serverHigh"};
        char text[] = "ping";
        EXPECT_EQ(vosMsgSend2("server", text, 4, 1, nullptr, 3000, 0), VOS_OK);
        EXPECT_EQ(normal.receive(), message({.type = 8, .noReturn = 1, .length = 4}, "ping"));
        EXPECT_EQ(memcmp(&g_vosMsgBufferSend_thread[32], "ping", 4), 0);
        EXPECT_EQ(vosMsgSend2("server", text, 4, 1, nullptr, 3000, 1), VOS_OK);
        EXPECT_EQ(high.receive().size(), 36u);
        uint32_t code = 0;
        EXPECT_EQ(vosMsgSend2("server", text, 4, 0, &code, 50, 2), VOS_ERROR); /* it does wait */
        EXPECT_EQ(requesterPathsLeft(), 0);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(errnoLine("vosMsgSend2:read", EAGAIN)));
}

TEST(SecondChannel, ARequestMakesExactlyTheseCallsAndReceivesAsManyBytesAsItSent) {
    const Outcome outcome = run([] {
        freshWorld();
        knowProcessId();
        Peer server{"/tmp/vos/server"};
        const pid_t responder = fork();
        if (responder == 0) {
            server.receive();
            server.send(server.sender, message({.type = 8, .retCode = 6, .length = 2}, "po"));
            _exit(0);
        }
        char text[] = "ping####";
        uint32_t code = 0;
        EXPECT_THAT(Faults::record([&] { EXPECT_EQ(vosMsgSend2("server", text, 4, 0, &code, 20000, 0), VOS_OK); }),
                    ElementsAre("socket", "setsockopt", "setsockopt", "unlink", "bind", "setsockopt", "setsockopt",
                                "connect", "write", "read", "unlink", "close"));
        EXPECT_EQ(code, 6u);
        EXPECT_STREQ(text, "pong####"); /* after the short answer's "po" are the bytes that were sent */
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgSend2:read need read 36 but read only 34."));
}

TEST(SecondChannel, EachFailingCallOfARequestIsNamedAndSocketAndPathAreGone) {
    const std::pair<const char *, std::string> expected[] = {
        {"socket", "vosMsgSend2:vosMsgLocalSocket failed."},
        {"bind", "vosMsgSend2:local bind iSocketFd "},
        {"connect", errnoLine("vosMsgSend2:connect /tmp/vos/server", EIO)},
        {"write", errnoLine("vosMsgSend2:write", EIO)},
        {"read", errnoLine("vosMsgSend2:read", EIO)},
    };
    for (const auto &[call, line] : expected) {
        const Attempt attempt = failCall(
            {.call = call},
            [] {
                freshWorld();
                stay("/tmp/vos/server");
            },
            [] {
                char text[] = "ping";
                uint32_t code = 0;
                const long result = vosMsgSend2("server", text, 4, 0, &code, 100, 0);
                EXPECT_EQ(requesterPathsLeft(), 0);
                return result;
            });
        EXPECT_EQ(attempt.result, VOS_ERROR) << call;
        EXPECT_THAT(attempt.messages, ElementsAre(StartsWith(line))) << call;
        expectNothingKept({attempt});
    }
}

TEST(SecondChannel, RequestsThatCannotBeMadeAreRefused) {
    const Outcome outcome = run([] {
        strcpy(szVosProcName, "scenario");
        static char text[64569];
        EXPECT_EQ(vosMsgSend2(nullptr, text, 4, 1, nullptr, 0, 0), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgSend2("b", nullptr, 4, 1, nullptr, 0, 0), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgSend2("b", text, 64569, 1, nullptr, 0, 0), VOS_ERR_TOO_LONG);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgSend2:parameter error.", "vosMsgSend2:parameter error.",
                                                "vosMsgSend2:ulMsgSize too long."));
}

TEST(SecondChannel, ItsBuffersAreAligned) {
    run([] {
        EXPECT_EQ(vosMsgCheck2(), VOS_OK);
        for (const uint8_t *buffer : {g_vosMsgBufferRecv_thread, g_vosMsgBufferSend_thread})
            EXPECT_EQ(reinterpret_cast<uintptr_t>(buffer) % 8, 0u);
    });
}
