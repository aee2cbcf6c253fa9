/* SPDX-License-Identifier: MIT */
/* Thread channels. Each difference from the main channel has a test. */
#include <pthread.h>

#include <array>
#include <utility>

#include "peer.h"
#include "support/substitute.h"

using namespace vostest;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

alignas(8) std::array<uint8_t, 70000> room;

int32_t openThread(int32_t number, uint32_t high = 0) {
    int32_t fd = -1;
    vosDebugConfig(0);
    EXPECT_EQ(vosMsgThreadInit("dir/app", number, &fd, high), VOS_OK);
    vosDebugConfig(VOS_DEBUG_ERROR);
    return fd;
}

/* Opens a main channel, which makes the directory, and the socket of a thread. */
int32_t openBoth() {
    openChannel("app");
    return openThread(3);
}

std::string boundTo(int fd) {
    sockaddr_un address{};
    socklen_t length = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length);
    return address.sun_path;
}

std::string textOf(std::size_t offset, std::size_t length) { return {&room[offset], &room[offset] + length}; }

}  // namespace

TEST(ThreadChannel, ThePathHoldsNameNumberAndHighForTheValueOneAlone) {
    run([] {
        openChannel("app");
        EXPECT_EQ(boundTo(openThread(3, 0)), "/tmp/vos/app3");
        EXPECT_EQ(boundTo(openThread(3, 1)), "/tmp/vos/app3High");
        EXPECT_EQ(boundTo(openThread(4, 2)), "/tmp/vos/app4");
        EXPECT_EQ(boundTo(openThread(-1)), "/tmp/vos/app-1");
        EXPECT_EQ(boundTo(openThread(-2147483647 - 1)), "/tmp/vos/app-2147483648");
    });
}

TEST(ThreadChannel, TheDirectoryIsNotMadeHere) {
    const Outcome outcome = run([] {
        freshWorld();
        int32_t fd = -7;
        EXPECT_EQ(vosMsgThreadInit("app", 3, &fd, 0), VOS_ERROR);
        EXPECT_EQ(fd, -7);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(StartsWith("vosMsgThreadInit:local bind iSocketFd ")));
}

TEST(ThreadChannel, ASecondSocketOfTheSameNumberTakesThePathOver) {
    run([] {
        openBoth();
        const int32_t second = openThread(3);
        EXPECT_TRUE(Peer{}.send("/tmp/vos/app3", application("new")));
        VOS_MSG_PEER peer;
        EXPECT_EQ(vosMsgThreadRecv(second, room.data(), 100, 0, &peer), 35);
    });
}

TEST(ThreadChannel, InitTracesItsStepsWithoutAnEndLine) {
    const Outcome outcome = run([] {
        openChannel("app");
        int32_t fd = -1;
        vosDebugConfig(VOS_DEBUG_TRACE);
        EXPECT_EQ(vosMsgThreadInit("app", 3, &fd, 0), VOS_OK);
    });
    EXPECT_THAT(
        outcome.messages(),
        ElementsAre("vosMsgThreadInit:start.", testing::MatchesRegex("vosMsgThreadInit:create app socket [0-9]+\\."),
                    testing::MatchesRegex("vosMsgThreadInit:local socket [0-9]+ success\\.")));
}

TEST(ThreadChannel, EachFailingCallOfInitIsNamedAndItsSocketClosed) {
    const auto attempts = failEachCall(
        [] {
            freshWorld();
            mkdir("/tmp/vos", 0777);
        },
        [] {
            int32_t fd = -1;
            const long result = vosMsgThreadInit("app", 3, &fd, 0);
            if (fd >= 0) close(fd);
            return result;
        });
    ASSERT_EQ(attempts.size(), 9u);
    expectNothingKept(attempts);
    EXPECT_EQ(at(attempts, "socket#1").result, VOS_ERROR);
    EXPECT_THAT(at(attempts, "socket#1").messages, ElementsAre("vosMsgThreadInit:local socket failed."));
    EXPECT_EQ(at(attempts, "bind#1").result, VOS_ERROR);
    EXPECT_THAT(at(attempts, "bind#1").messages,
                ElementsAre(testing::MatchesRegex(
                    "vosMsgThreadInit:local bind iSocketFd [0-9]+ failed errno:5\\(Input/output error\\)\\.")));
    EXPECT_THAT(at(attempts, "setsockopt#3").messages, Contains("vosMsgSocketOptmize:SO_SNDBUF failed."));
    for (const char *const call :
         {"setsockopt#1", "setsockopt#2", "unlink#1", "setsockopt#3", "getsockopt#1", "setsockopt#4", "getsockopt#2"})
        EXPECT_EQ(at(attempts, call).result, VOS_OK) << call;
}

TEST(ThreadChannel, NullArgumentsAndASmallBufferAreRefused) {
    const Outcome outcome = run([] {
        const int32_t fd = openBoth();
        int32_t other = -1;
        VOS_MSG_PEER peer{};
        char text[64] = "ping";
        EXPECT_EQ(vosMsgThreadInit(nullptr, 3, &other, 0), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgThreadInit("app", 3, nullptr, 0), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgThreadRecv(fd, nullptr, 100, 0, &peer), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgThreadRecv(fd, text, 64, 0, nullptr), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgThreadResp(0, nullptr, 0, 4, &peer), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgThreadResp(0, text, 0, 4, nullptr), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgThreadSend(nullptr, 3, text, 4, 1, nullptr, 0, 0), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgThreadSend("app", 3, nullptr, 4, 1, nullptr, 0, 0), VOS_ERR_PARAM);
        vosDebugConfig(0); /* the last ones are printed whatever the flag word holds */
        EXPECT_EQ(vosMsgThreadRecv(fd, text, 32, 0, &peer), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgThreadRecv(fd, text, 0, 0, &peer), VOS_ERR_PARAM);
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosMsgThreadInit:parameter error.", "vosMsgThreadInit:parameter error.",
                            "vosMsgThreadRecv:parameter error.", "vosMsgThreadRecv:parameter error.",
                            "vosMsgThreadResp:parameter error.", "vosMsgThreadResp:parameter error.",
                            "vosMsgThreadSend:parameter error.", "vosMsgThreadSend:parameter error.",
                            "vosMsgThreadRecv:ulMsgSize too small.", "vosMsgThreadRecv:ulMsgSize too small."));
}

TEST(ThreadChannel, AMessageStaysInTheCallersBufferWithItsHeader) {
    run([] {
        const int32_t fd = openBoth();
        const Peer client{"/tmp/vos/client"};
        EXPECT_TRUE(client.send("/tmp/vos/app3", message({.noReturn = 5, .length = 100}, std::string(100, 'p'))));
        VOS_MSG_PEER peer;
        EXPECT_EQ(vosMsgThreadRecv(fd, room.data(), 200, 0, &peer), 132);
        EXPECT_EQ(textOf(32, 100), std::string(100, 'p'));
        EXPECT_EQ(peer.ulNoReturn, 5u);
        EXPECT_EQ(peer.iSocketFd, fd);
        EXPECT_STREQ(peer.stAddr.sun_path, "/tmp/vos/client");
    });
}

TEST(ThreadChannel, ABufferOf33BytesWaitsAndCutsWhatDoesNotFit) {
    run([] {
        const int32_t fd = openBoth();
        room.fill('#');
        EXPECT_TRUE(Peer{}.send("/tmp/vos/app3", application("long")));
        VOS_MSG_PEER peer;
        EXPECT_EQ(vosMsgThreadRecv(fd, room.data(), 33, 0, &peer), 33);
        EXPECT_EQ(textOf(32, 3), "l##");
    });
}

TEST(ThreadChannel, InternalMessagesAreHandledAndShortOnesDropped) {
    const Outcome outcome = run([] {
        const int32_t fd = openBoth();
        const Peer peer;
        EXPECT_TRUE(peer.send("/tmp/vos/app3", Bytes{}.fill(31, 8)));
        EXPECT_TRUE(peer.send("/tmp/vos/app3", message({.type = VOS_MSG_SMD_DEBUG, .value1 = 77})));
        EXPECT_TRUE(peer.send("/tmp/vos/app3", application("last")));
        VOS_MSG_PEER from;
        EXPECT_EQ(vosMsgThreadRecv(fd, room.data(), 200, 0, &from), 36);
        EXPECT_EQ(g_vosDebugSmdFlags, 77u);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgThreadRecv:message of 31 bytes is too short."));
}

namespace {

int handled;
int32_t readObject(uint32_t, char *, uint32_t *, int32_t *, void *value, uint32_t *length, uint16_t *) {
    ++handled;
    memset(value, 'v', *length);
    return 0;
}

Bytes objectRequest(uint32_t valueLength) {
    return message({.type = VOS_MSG_TYPE_CCD}).word(8).text({"obj\0\0\0\0\0", 8}).word(valueLength);
}

/* As the header says. Sanitizers make every frame larger. */
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kNamedStack = 1024 * 1024;
#else
constexpr std::size_t kNamedStack = 80 * 1024;
#endif

/* Runs in a thread with a stack of that size, or of the smallest size that the C library allows: 128 KiB on AArch64. */
void onStackOf(std::size_t size, const std::function<void()> &action) {
    pthread_attr_t attributes;
    EXPECT_EQ(pthread_attr_init(&attributes), 0);
    EXPECT_EQ(pthread_attr_setstacksize(&attributes, std::max(size, static_cast<std::size_t>(PTHREAD_STACK_MIN))), 0);
    pthread_t thread{};
    const auto body = [](void *argument) -> void * {
        (*static_cast<const std::function<void()> *>(argument))();
        return nullptr;
    };
    EXPECT_EQ(pthread_create(&thread, &attributes, body, const_cast<std::function<void()> *>(&action)), 0);
    EXPECT_EQ(pthread_join(thread, nullptr), 0);
}

}  // namespace

TEST(ThreadChannel, AValueIsBoundedByTheCallersRealBuffer) {
    run([] {
        const int32_t fd = openBoth();
        vosMsgRegisterCcd(readObject);
        Peer client{"/tmp/vos/client"};
        room.fill('#');
        for (const uint32_t announced : {64u, 65u, 64552u, 0xFFFFFFFFu})
            EXPECT_TRUE(client.send("/tmp/vos/app3", objectRequest(announced)));
        EXPECT_TRUE(client.send("/tmp/vos/app3", application("")));
        VOS_MSG_PEER from;
        EXPECT_EQ(vosMsgThreadRecv(fd, room.data(), 48 + 64, 0, &from), 32);
        EXPECT_EQ(handled, 4);
        EXPECT_EQ(room[48 + 64], '#');
        for (int i = 0; i < 4; ++i) {
            const Bytes answer = client.receive();
            EXPECT_EQ(answer.size(), 48u + 64);
            EXPECT_EQ(answer.wordAt(44), 64u);
        }
    });
}

TEST(ThreadChannel, InABufferLargerThanAMessageAValueIsBoundedByTheMessage) {
    run([] {
        const int32_t fd = openBoth();
        vosMsgRegisterCcd(readObject);
        Peer client{"/tmp/vos/client"};
        EXPECT_TRUE(client.send("/tmp/vos/app3", objectRequest(69000)));
        EXPECT_TRUE(client.send("/tmp/vos/app3", application("")));
        VOS_MSG_PEER from;
        EXPECT_EQ(vosMsgThreadRecv(fd, room.data(), 70000, 0, &from), 32);
        EXPECT_EQ(client.receive().size(), 64600u);
    });
}

TEST(ThreadChannel, AThreadWithTheStackThatTheHeaderNamesServesEveryKindOfMessage) {
    run([] {
        static const int32_t fd = openBoth();
        vosMsgRegisterCcd(readObject);
        Peer client{"/tmp/vos/client"};
        const Peer unnamed;
        for (const Bytes &each : {objectRequest(64552), message({.type = VOS_MSG_TYPE_BLDRUN, .length = 100}),
                                  message({.type = VOS_MSG_TYPE_CCD}), message({.type = 99})})
            for (const Peer *peer : {&std::as_const(client), &unnamed}) EXPECT_TRUE(peer->send("/tmp/vos/app3", each));
        EXPECT_TRUE(client.send("/tmp/vos/app3", application("last")));
        const std::function<void()> serve = [] {
            vosDebugConfig(0xFFFFFFFD); /* every line is written, and lines need stack too */
            VOS_MSG_PEER from;
            EXPECT_EQ(vosMsgThreadRecv(fd, room.data(), 64600, 0, &from), 36);
            vosDebugConfig(0);
        };
        onStackOf(kNamedStack, serve);
        EXPECT_EQ(handled, 2);
        EXPECT_EQ(client.receive().size(), 64600u);
    });
}

TEST(ThreadChannel, ABufferThatIsNotAlignedFailsTheNamedAssertion) {
    const Outcome outcome = run([] {
        const int32_t fd = openBoth();
        vosMsgRegisterCcd(readObject);
        EXPECT_TRUE(Peer{}.send("/tmp/vos/app3", objectRequest(4)));
        VOS_MSG_PEER from;
        vosMsgThreadRecv(fd, room.data() + 4, 200, 0, &from);
    });
    EXPECT_TRUE(outcome.killedBy(SIGABRT));
    EXPECT_THAT(outcome.output, testing::HasSubstr("Assertion failed!0 == (((uintptr_t)pValueBuf) % ZEB_LONGBYTES), "));
}

TEST(ThreadChannel, NoTimersFireAndNoApplicationDescriptorsAreWatched) {
    run([] {
        const int32_t fd = openBoth();
        static int fired;
        VOS_MSG_TIMER *timer = nullptr;
        vosTimerRegister(
            1, 0, [](uint32_t, uint64_t) { ++fired; }, &timer, 0);
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        EXPECT_EQ(write(ends[1], "x", 1), 1);
        vosMsgSockAdd(
            ends[0], [](int32_t, void *) { return ++fired; }, nullptr);
        EXPECT_TRUE(Peer{}.send("/tmp/vos/app3", message({.type = VOS_MSG_SMD_DEBUG})));
        EXPECT_TRUE(Peer{}.send("/tmp/vos/app3", application("")));
        VOS_MSG_PEER from;
        EXPECT_EQ(vosMsgThreadRecv(fd, room.data(), 200, 0, &from), 32);
        EXPECT_EQ(fired, 0);
        vosMsgSockDelete(ends[0]);
        vosTimerCancel(timer);
    });
}

TEST(ThreadChannel, ADescriptorOutOfRangeFailsWithOneLine) {
    const Outcome outcome = run([] {
        strcpy(szVosProcName, "scenario");
        VOS_MSG_PEER from;
        for (const int32_t fd : {-1, 1024, 0x7FFFFFFF})
            EXPECT_EQ(vosMsgThreadRecv(fd, room.data(), 200, 0, &from), VOS_ERROR);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgThreadRecv:socket -1 is out of select range.",
                                                "vosMsgThreadRecv:socket 1024 is out of select range.",
                                                "vosMsgThreadRecv:socket 2147483647 is out of select range."));
}

TEST(ThreadChannel, FailingCallsOfTheReceiveEndItWithTheirLines) {
    static int32_t fd;
    const auto prepare = [] {
        fd = openBoth();
        EXPECT_TRUE(Peer{}.send("/tmp/vos/app3", application("")));
    };
    const auto attempts = failEachCall(prepare, [] {
        VOS_MSG_PEER from;
        return long{vosMsgThreadRecv(fd, room.data(), 200, 0, &from)};
    });
    ASSERT_EQ(attempts.size(), 2u);
    expectNothingKept(attempts);
    EXPECT_EQ(at(attempts, "select#1").result, VOS_ERROR);
    EXPECT_THAT(at(attempts, "select#1").messages, ElementsAre(errnoLine("vosMsgThreadRecv:select", EIO)));
    EXPECT_EQ(at(attempts, "recvfrom#1").result, VOS_ERROR);
    EXPECT_THAT(at(attempts, "recvfrom#1").messages,
                ElementsAre(errnoLine("vosMsgRecvStream:recvfrom", EIO), "vosMsgThreadRecv:vosMsgRecvStream failed."));
}

TEST(ThreadChannel, AWaitThatEndsWithNothingReadyTimesOutWithoutALine) {
    const Outcome outcome = run([] {
        const int32_t fd = openBoth();
        substitute(
            "select", +[](int, fd_set *, fd_set *, fd_set *, timeval *) { return 0; });
        vosDebugConfig(VOS_DEBUG_TRACE);
        VOS_MSG_PEER from;
        EXPECT_EQ(vosMsgThreadRecv(fd, room.data(), 200, 0, &from), VOS_ERR_TIMEOUT);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgThreadRecv:start."));
}

TEST(ThreadChannel, WhenNoAnswerIsWantedTheBufferIsNotWritten) {
    run([] {
        room.fill('#');
        VOS_MSG_PEER peer{};
        peer.ulNoReturn = 1;
        EXPECT_THAT(Faults::record([&] { EXPECT_EQ(vosMsgThreadResp(0, room.data(), 9, 4, &peer), VOS_OK); }),
                    IsEmpty());
        EXPECT_EQ(textOf(0, 100), std::string(100, '#'));
    });
}

TEST(ThreadChannel, AnAnswerIsSentFromTheBufferWithoutTheMark) {
    const Outcome outcome = run([] {
        const int32_t fd = openBoth();
        Peer client{"/tmp/vos/client"};
        EXPECT_TRUE(client.send("/tmp/vos/app3", application("")));
        VOS_MSG_PEER peer;
        EXPECT_EQ(vosMsgThreadRecv(fd, room.data(), 200, 0, &peer), 32);
        room.fill('#');
        memcpy(&room[32], "pong", 4);
        EXPECT_THAT(Faults::record([&] { EXPECT_EQ(vosMsgThreadResp(0, room.data(), 9, 4, &peer), VOS_OK); }),
                    ElementsAre("sendto"));
        EXPECT_EQ(client.receive(), message({.type = 8, .retCode = 9, .length = 4}, "pong"));
        EXPECT_EQ(vosMsgThreadResp(0, room.data(), 9, 66000, &peer), VOS_OK); /* no limit but the socket's */
        EXPECT_EQ(client.receive().size(), 66032u);
        EXPECT_EQ(vosMsgThreadResp(0, room.data(), 9, 0xFFFFFFFF, &peer), VOS_ERROR);
        peer.ulNoReturn = 1;
        EXPECT_EQ(vosMsgThreadResp(0, room.data(), 9, 4, &peer), VOS_OK);
        EXPECT_FALSE(client.hasMail());
        peer.ulNoReturn = 0;
        Faults::arm({.call = "sendto", .shortTo = 33});
        EXPECT_EQ(vosMsgThreadResp(0, room.data(), 9, 4, &peer), VOS_OK);
        EXPECT_TRUE(Faults::disarm());
        Faults::arm({.call = "sendto"});
        EXPECT_EQ(vosMsgThreadResp(0, room.data(), 9, 4, &peer), VOS_ERROR);
        EXPECT_TRUE(Faults::disarm());
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(errnoLine("vosMsgThreadResp:sendto", EMSGSIZE),
                                                "vosMsgThreadResp:sendto need send 36 but send only 33.",
                                                errnoLine("vosMsgThreadResp:sendto", EIO)));
}

TEST(ThreadChannel, ARequestCarriesNoMarkAndItsAnswerReplacesTheBuffer) {
    run([] {
        openChannel("A");
        Peer thread{"/tmp/vos/app3"};
        char text[] = "ping";
        EXPECT_EQ(vosMsgThreadSend("x/app", 3, text, 4, 1, nullptr, 3000, 0), VOS_OK);
        EXPECT_EQ(thread.receive(), message({.type = 8, .noReturn = 1, .length = 4}, "ping"));
        const pid_t responder = fork();
        if (responder == 0) {
            thread.receive();
            thread.send(thread.sender, message({.type = 8, .retCode = 6, .length = 4}, "pong"));
            _exit(0);
        }
        uint32_t code = 0;
        EXPECT_EQ(vosMsgThreadSend("app", 3, text, 4, 0, &code, 20000, 0xFFFFFFFF), VOS_OK);
        EXPECT_EQ(code, 6u);
        EXPECT_STREQ(text, "pong");
        EXPECT_EQ(requesterPathsLeft(), 0);
    });
}

TEST(ThreadChannel, TheLargestRequestIsSentAndOneByteMoreIsRefused) {
    const Outcome outcome = run([] {
        freshWorld();
        Peer thread{"/tmp/vos/app3"};
        EXPECT_EQ(vosMsgThreadSend("app", 3, room.data(), 64568, 1, nullptr, 3000, 0), VOS_OK);
        EXPECT_EQ(thread.receive().size(), 64600u);
        EXPECT_EQ(vosMsgThreadSend("app", 3, room.data(), 64569, 1, nullptr, 3000, 0), VOS_ERR_TOO_LONG);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgThreadSend:ulMsgSize too long."));
}

TEST(ThreadChannel, EachFailingCallOfARequestIsNamedAndSocketAndPathAreGone) {
    const std::pair<const char *, std::string> expected[] = {
        {"socket", "vosMsgThreadSend:vosMsgLocalSocket failed."},
        {"bind", "vosMsgThreadSend:local bind iSocketFd "},
        {"connect", errnoLine("vosMsgThreadSend:connect /tmp/vos/app3", EIO)},
        {"sendmsg", errnoLine("vosMsgThreadSend:sendmsg", EIO)},
        {"recvmsg", errnoLine("vosMsgThreadSend:read", EIO)},
    };
    for (const auto &[call, line] : expected) {
        const Attempt attempt = failCall(
            {.call = call},
            [] {
                freshWorld();
                stay("/tmp/vos/app3");
            },
            [] {
                char text[] = "ping";
                uint32_t code = 0;
                const long result = vosMsgThreadSend("app", 3, text, 4, 0, &code, 100, 0);
                EXPECT_EQ(requesterPathsLeft(), 0);
                return result;
            });
        EXPECT_EQ(attempt.result, VOS_ERROR) << call;
        EXPECT_THAT(attempt.messages, ElementsAre(StartsWith(line))) << call;
        expectNothingKept({attempt});
    }
}
