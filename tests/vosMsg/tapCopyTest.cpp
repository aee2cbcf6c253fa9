/* SPDX-License-Identifier: MIT */
/* What a tap gets: copies of the messages of every channel, with the header that describes them. */
#include <linux/netlink.h>
#include <sys/uio.h>

#include "tap.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

uint32_t code;
int reserved;

/* The own process's requester. */
std::string ownRequester() { return "/tmp/vos/clientp" + std::to_string(getpid()) + "t"; }

void expectCopy(const Copy &copy, int what, int stage, int socket, const std::string &own, const std::string &peer) {
    EXPECT_EQ(copy.head.ucWhat, what);
    EXPECT_EQ(copy.head.ucStage, stage);
    EXPECT_EQ(copy.head.ucSocket, socket);
    EXPECT_EQ(copy.own(), own);
    EXPECT_EQ(copy.peer(), peer);
}

uint64_t clockNow(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000 + static_cast<uint64_t>(now.tv_nsec);
}

/* A server A that answers `count` requests, and is tapped. */
Process tappedServer(TapPeer &tap, int count, uint32_t limit = 0xFFFFFFFF) {
    Process server = start([=] {
        openChannel("A");
        ready();
        for (int i = 0; i < count; ++i) {
            Received request = receive();
            vosMsgResp(0, 7, "pong", 4, &request.peer);
        }
    });
    server.awaitReady();
    tap.ask("A", VOS_MSG_TAP_ON, limit);
    EXPECT_EQ(tap.nextWhat(), VOS_MSG_TAP_STARTED);
    return server;
}

/* Serves what has come, whatever it is, and returns the one copy that the tap got. */
Copy served(TapPeer &tap, const std::string &to, const Bytes &bytes, const Peer &from) {
    EXPECT_TRUE(from.send(to, bytes));
    receive(100, 0);
    Copy copy = tap.next();
    return copy;
}

int32_t buildText(char *text, int32_t *room, uint32_t, uint32_t) {
    memcpy(text, "configured", 10);
    *room -= 10;
    return 0;
}

int32_t touchObject(uint32_t, char *, uint32_t *, int32_t *, void *value, uint32_t *length, uint16_t *) {
    memset(value, 'v', *length);
    return 0;
}

int32_t describeObject(char *, uint32_t, uint32_t *, uint32_t *, uint32_t *, uint32_t *, uint32_t *, uint32_t *,
                       uint32_t *, uint32_t *count, uint32_t *, uint32_t *, uint32_t *) {
    *count = 32;
    return 0;
}

Bytes objectRequest() {
    return message({.type = VOS_MSG_TYPE_CCD}).word(8).text(std::string("abcdefg\0", 8)).word(4).fill(4);
}

}  // namespace

TEST(TapCopy, ARequestAndItsAnswerAreSeenAtBothEndsAndBelongTogether) {
    TapPeer there{"there"};
    Process server = tappedServer(there, 1);
    std::string requester;
    run([&] {
        openChannel("B");
        TapPeer here{"here"};
        here.on(0xFFFFFFFF, "B");
        char text[] = "ping";
        const uint64_t before = clockNow(CLOCK_MONOTONIC);
        const uint64_t wallBefore = clockNow(CLOCK_REALTIME);
        EXPECT_EQ(vosMsgSend("A", text, 4, 0, &code, 3000, 0), VOS_OK);
        const uint64_t after = clockNow(CLOCK_MONOTONIC);
        const Copy sent = here.next();
        EXPECT_THAT(sent.own(), StartsWith(ownRequester()));
        expectCopy(sent, VOS_MSG_TAP_SENT, VOS_MSG_TAP_REQUEST, VOS_MSG_TAP_REQUESTER, sent.own(), "/tmp/vos/A");
        EXPECT_EQ(sent.message, message({.value1 = 254, .length = 4}, "ping"));
        EXPECT_EQ(sent.head.ulWholeLen, 36u);
        EXPECT_EQ(sent.head.iResult, 36);
        EXPECT_EQ(sent.head.iErrno, 0);
        EXPECT_EQ(sent.head.ullNumber, 1u);
        EXPECT_EQ(sent.head.ulProcessId, static_cast<uint32_t>(getpid()));
        EXPECT_EQ(sent.head.ulThreadId, static_cast<uint32_t>(gettid()));
        EXPECT_GE(sent.head.iSocketFd, 0);
        const Copy answer = here.next();
        expectCopy(answer, VOS_MSG_TAP_RECEIVED, VOS_MSG_TAP_ANSWER, VOS_MSG_TAP_REQUESTER, sent.own(), "/tmp/vos/A");
        EXPECT_EQ(answer.message, message({.retCode = 7, .value1 = 255, .length = 4}, "pong"));
        EXPECT_EQ(answer.head.ullNumber, 2u);
        EXPECT_LE(before, sent.head.ullMonotonicNs);
        EXPECT_LE(sent.head.ullMonotonicNs, answer.head.ullMonotonicNs);
        EXPECT_LE(answer.head.ullMonotonicNs, after);
        EXPECT_LE(wallBefore, sent.head.ullWallNs);
        EXPECT_FALSE(here.hasMail());
        /* The server's copies, and their order with those of the requester on the clock that both share. */
        TapPeer &far = there;
        const Copy got = far.next();
        expectCopy(got, VOS_MSG_TAP_RECEIVED, VOS_MSG_TAP_REQUEST, VOS_MSG_TAP_NORMAL, "/tmp/vos/A", sent.own());
        EXPECT_EQ(got.message, sent.message);
        const Copy answered = far.next();
        expectCopy(answered, VOS_MSG_TAP_SENT, VOS_MSG_TAP_ANSWER, VOS_MSG_TAP_NORMAL, "/tmp/vos/A", sent.own());
        EXPECT_EQ(answered.message, answer.message);
        EXPECT_LE(sent.head.ullMonotonicNs, got.head.ullMonotonicNs);
        EXPECT_LE(got.head.ullMonotonicNs, answered.head.ullMonotonicNs);
        EXPECT_LE(answered.head.ullMonotonicNs, answer.head.ullMonotonicNs);
    });
    server.finish();
}

TEST(TapCopy, TheLimitCountsThePayloadAndTheHeaderAlwaysComes) {
    run([] {
        openChannel("A");
        TapPeer tap;
        const Peer peer;
        for (const uint32_t limit : {0u, 1u, 9u, 10u, 11u, 0xFFFFFFFFu}) {
            tap.on(limit);
            const Copy copy = served(tap, "/tmp/vos/A", application("ten bytes!"), peer);
            Bytes expected = application("ten bytes!");
            expected.resize(32 + std::min(limit, 10u));
            EXPECT_EQ(copy.message, expected);
            EXPECT_EQ(copy.head.ulWholeLen, 42u);
            EXPECT_EQ(copy.head.iResult, 42);
        }
    });
}

TEST(TapCopy, TheLargestMessageIsCopiedWhole) {
    run([] {
        openChannel("A");
        TapPeer tap;
        tap.on();
        const Bytes largest = application(std::string(64568, 'x'));
        EXPECT_EQ(served(tap, "/tmp/vos/A", largest, Peer{}).message, largest);
    });
}

TEST(TapCopy, AShortMessageAndAnEmptyOneAreCopiedAsTheyCame) {
    run([] {
        openChannel("A");
        TapPeer tap;
        tap.on(0);
        const Copy three = served(tap, "/tmp/vos/A", Bytes{}.text("abc"), Peer{});
        EXPECT_EQ(three.message, Bytes{}.text("abc"));
        EXPECT_EQ(three.head.ucStage, VOS_MSG_TAP_PLAIN);
        const Copy empty = served(tap, "/tmp/vos/A", Bytes{}, Peer{});
        EXPECT_EQ(empty.head.iResult, 0);
        EXPECT_EQ(empty.head.ulWholeLen, 0u);
        EXPECT_EQ(empty.head.ucSocket, VOS_MSG_TAP_NORMAL);
    });
}

TEST(TapCopy, AnUnboundSenderAnAbstractOneAndOneOfTheLongestPathAreShown) {
    run([] {
        openChannel("A");
        TapPeer tap;
        tap.on(0);
        EXPECT_EQ(served(tap, "/tmp/vos/A", application("x"), Peer{}).peer(), "");
        Peer abstract;
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        memcpy(address.sun_path, "\0a\0b", 4);
        EXPECT_EQ(bind(abstract.fd(), reinterpret_cast<const sockaddr *>(&address), 6), 0);
        EXPECT_EQ(served(tap, "/tmp/vos/A", application("x"), abstract).peer(), std::string("\0a\0b", 4));
        const std::string longest = "/tmp/vos/" + std::string(99, 'n');
        Peer full;
        memcpy(address.sun_path, longest.data(), 108);
        EXPECT_EQ(bind(full.fd(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(served(tap, "/tmp/vos/A", application("x"), full).peer(), longest);
    });
}

TEST(TapCopy, OneWayRequestsAndRequestsWithoutAReceiverAreSeen) {
    run([] {
        openChannel("A");
        TapPeer tap;
        const Peer other{"/tmp/vos/B"};
        tap.on();
        char text[] = "text";
        EXPECT_EQ(vosMsgSend("B", text, 4, 1, &code, 3000, 0), VOS_OK);
        expectCopy(tap.next(), VOS_MSG_TAP_SENT, VOS_MSG_TAP_ONE_WAY, VOS_MSG_TAP_REQUESTER,
                   ownRequester() + std::to_string(pthread_self()) + "v1", "/tmp/vos/B");
        EXPECT_EQ(vosMsgSend("B", text, 4, 0, &code, 3000, VOS_MSG_NO_WAIT | VOS_MSG_TO_HIGH), VOS_ERROR);
        EXPECT_EQ(errno, ENOENT);
        const Copy nobody = tap.next();
        expectCopy(nobody, VOS_MSG_TAP_SENT, VOS_MSG_TAP_REQUEST, VOS_MSG_TAP_REQUESTER,
                   ownRequester() + std::to_string(pthread_self()) + "v2", "/tmp/vos/BHigh");
        EXPECT_EQ(nobody.head.iResult, -1);
        EXPECT_EQ(nobody.head.iErrno, ENOENT);
        EXPECT_EQ(nobody.head.ulWholeLen, 0u);
        EXPECT_EQ(vosMsgSend("B", text, 4, 0, &code, 10, 0), VOS_ERROR); /* nobody answers */
        EXPECT_EQ(errno, EAGAIN);
        EXPECT_EQ(tap.next().head.ucStage, VOS_MSG_TAP_REQUEST);
        const Copy late = tap.next();
        EXPECT_EQ(late.head.ucWhat, VOS_MSG_TAP_RECEIVED);
        EXPECT_EQ(late.head.ucStage, VOS_MSG_TAP_ANSWER);
        EXPECT_EQ(late.head.iResult, -1);
        EXPECT_EQ(late.head.iErrno, EAGAIN);
        EXPECT_THAT(late.message, IsEmpty());
        EXPECT_EQ(served(tap, "/tmp/vos/A", message({.noReturn = 1}), Peer{}).head.ucStage, VOS_MSG_TAP_ONE_WAY);
        EXPECT_EQ(served(tap, "/tmp/vos/A", message({.noReturn = 2}), Peer{}).head.ucStage, VOS_MSG_TAP_REQUEST);
        EXPECT_FALSE(tap.hasMail());
    });
}

TEST(TapCopy, AnAnswerThatCannotBeSentIsSeenWithItsErrno) {
    run([] {
        openChannel("A");
        TapPeer tap;
        tap.on();
        Received request{};
        {
            const Peer client{"/tmp/vos/client"};
            EXPECT_TRUE(client.send("/tmp/vos/A", application("x")));
            request = receive();
        }
        EXPECT_EQ(tap.nextWhat(), VOS_MSG_TAP_RECEIVED);
        EXPECT_EQ(vosMsgResp(0, 9, "pong", 4, &request.peer), VOS_ERROR);
        EXPECT_EQ(errno, ECONNREFUSED);
        const Copy answer = tap.next();
        expectCopy(answer, VOS_MSG_TAP_SENT, VOS_MSG_TAP_ANSWER, VOS_MSG_TAP_NORMAL, "/tmp/vos/A", "/tmp/vos/client");
        EXPECT_EQ(answer.head.iErrno, ECONNREFUSED);
        EXPECT_EQ(answer.message, message({.retCode = 9, .value1 = 255, .length = 4}, "pong"));
    });
}

TEST(TapCopy, TheHighSocketTheSecondChannelAndThreadChannelsAreNamed) {
    run([] {
        int32_t thread = -1;
        openChannel("A");
        vosDebugConfig(0);
        EXPECT_EQ(vosMsgInit2("S", 1, &reserved), VOS_OK);
        EXPECT_EQ(vosMsgThreadInit("A", 5, &thread, 0), VOS_OK);
        TapPeer tap;
        tap.on();
        const Peer peer{"/tmp/vos/peer"};
        EXPECT_TRUE(peer.send("/tmp/vos/AHigh", application("high")));
        Received request = receive();
        EXPECT_EQ(vosMsgResp(0, 0, "h", 1, &request.peer), VOS_OK);
        for (const int what : {VOS_MSG_TAP_RECEIVED, VOS_MSG_TAP_SENT})
            expectCopy(tap.next(), what, what == VOS_MSG_TAP_SENT ? VOS_MSG_TAP_ANSWER : VOS_MSG_TAP_REQUEST,
                       VOS_MSG_TAP_HIGH, "/tmp/vos/AHigh", "/tmp/vos/peer");
        alignas(8) std::array<char, 200> room;
        VOS_MSG_PEER from;
        const std::pair<std::string, int> second[] = {{"S", VOS_MSG_TAP_SECOND}, {"SHigh", VOS_MSG_TAP_SECOND_HIGH}};
        for (const auto &[name, socket] : second) {
            EXPECT_TRUE(peer.send("/tmp/vos/" + name, application("second")));
            EXPECT_GT(vosMsgRecv2(0, room.data(), 100, 5000, &from), 0);
            EXPECT_EQ(vosMsgResp2(0, 3, "two", 3, &from), VOS_OK);
            expectCopy(tap.next(), VOS_MSG_TAP_RECEIVED, VOS_MSG_TAP_REQUEST, socket, "/tmp/vos/" + name,
                       "/tmp/vos/peer");
            const Copy answer = tap.next();
            expectCopy(answer, VOS_MSG_TAP_SENT, VOS_MSG_TAP_ANSWER, socket, "/tmp/vos/" + name, "/tmp/vos/peer");
            EXPECT_EQ(answer.message, message({.retCode = 3, .length = 3}, "two"));
        }
        EXPECT_TRUE(peer.send("/tmp/vos/A5", application("thread")));
        EXPECT_GT(vosMsgThreadRecv(thread, room.data(), 200, 0, &from), 0);
        EXPECT_EQ(vosMsgThreadResp(0, room.data(), 3, 6, &from), VOS_OK);
        const Copy got = tap.next();
        expectCopy(got, VOS_MSG_TAP_RECEIVED, VOS_MSG_TAP_REQUEST, VOS_MSG_TAP_THREAD, "", "/tmp/vos/peer");
        EXPECT_EQ(got.head.iSocketFd, thread);
        expectCopy(tap.next(), VOS_MSG_TAP_SENT, VOS_MSG_TAP_ANSWER, VOS_MSG_TAP_THREAD, "", "/tmp/vos/peer");
        EXPECT_FALSE(tap.hasMail());
    });
}

TEST(TapCopy, RequestsOfTheSecondChannelAndToThreadsAreSeen) {
    run([] {
        openChannel("A");
        const Peer other{"/tmp/vos/B"};
        const Peer thread{"/tmp/vos/B3"};
        TapPeer tap;
        tap.on();
        char text[] = "text";
        EXPECT_EQ(vosMsgSend2("B", text, 4, 1, &code, 3000, 0), VOS_OK);
        const Copy second = tap.next();
        EXPECT_EQ(second.peer(), "/tmp/vos/B");
        EXPECT_EQ(second.message, message({.noReturn = 1, .length = 4}, "text"));
        EXPECT_EQ(vosMsgThreadSend("B", 3, text, 4, 1, &code, 3000, 0), VOS_OK);
        EXPECT_EQ(tap.next().peer(), "/tmp/vos/B3");
        EXPECT_EQ(vosMsgSend2("B", text, 4, 0, &code, 10, 0), VOS_ERROR);
        EXPECT_EQ(tap.next().head.ucStage, VOS_MSG_TAP_REQUEST);
        const Copy none = tap.next();
        EXPECT_EQ(none.head.ucWhat, VOS_MSG_TAP_RECEIVED);
        EXPECT_EQ(none.head.iErrno, EAGAIN);
    });
}

TEST(TapCopy, MessagesOfTheKernelAreCopiedWithTheirNetlinkHeader) {
    run([] {
        openChannel("A", 3);
        vosDebugConfig(0);
        TapPeer tap;
        tap.on(2);
        const int kernel = socket(AF_NETLINK, SOCK_RAW, NETLINK_USERSOCK);
        sockaddr_nl self{};
        socklen_t length = sizeof self;
        sockaddr_nl to{};
        to.nl_family = AF_NETLINK;
        to.nl_pid = static_cast<uint32_t>(getpid());
        const Bytes datagram =
            Bytes{}.fill(16, 1).raw(message({.type = 2, .value1 = 1}, "more").data(), 32).text("more");
        EXPECT_EQ(sendto(kernel, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr *>(&to), sizeof to),
                  52);
        EXPECT_EQ(getsockname(kernel, reinterpret_cast<sockaddr *>(&self), &length), 0);
        receive(100, 0);
        const Copy copy = tap.next();
        expectCopy(copy, VOS_MSG_TAP_RECEIVED, VOS_MSG_TAP_ONE_WAY, VOS_MSG_TAP_NETLINK, "", "");
        EXPECT_EQ(copy.head.ulHeadAt, 16u);
        EXPECT_EQ(copy.head.ulPeerPort, self.nl_pid);
        EXPECT_EQ(copy.head.ulWholeLen, 52u);
        EXPECT_EQ(copy.message, Bytes(datagram.begin(), datagram.begin() + 50));
        close(kernel);
    });
}

TEST(TapCopy, RequestsThatTheLibraryAnswersAreSeenWithTheirAnswers) {
    run([] {
        openChannel("A");
        vosMsgRegisterBldrun(buildText);
        vosMsgRegisterCcd(touchObject);
        vosMsgRegisterCcdObjInfoGet(describeObject);
        TapPeer tap;
        tap.on();
        Peer peer{"/tmp/vos/peer"};
        const Bytes requests[] = {
            message({.type = VOS_MSG_TYPE_BLDRUN, .length = 100}), objectRequest(),
            message({.type = VOS_MSG_TYPE_CCD_OBJ_INFO_GET, .value2 = 4}).text(std::string("abc\0", 4))};
        for (const Bytes &request : requests) {
            const Copy got = served(tap, "/tmp/vos/A", request, peer);
            expectCopy(got, VOS_MSG_TAP_RECEIVED, VOS_MSG_TAP_REQUEST, VOS_MSG_TAP_NORMAL, "/tmp/vos/A",
                       "/tmp/vos/peer");
            EXPECT_EQ(got.message, request);
            const Copy answer = tap.next();
            expectCopy(answer, VOS_MSG_TAP_SENT, VOS_MSG_TAP_ANSWER, VOS_MSG_TAP_NORMAL, "/tmp/vos/A", "/tmp/vos/peer");
            EXPECT_EQ(answer.message, peer.receive());
        }
        Bytes silent = objectRequest();
        silent[4] = 1;
        EXPECT_EQ(served(tap, "/tmp/vos/A", silent, peer).head.ucStage, VOS_MSG_TAP_ONE_WAY);
        for (const uint32_t type : {5u, 6u, 9u, 2u, 12345u})
            EXPECT_EQ(served(tap, "/tmp/vos/A", message({.type = type}), peer).head.ucStage, VOS_MSG_TAP_ONE_WAY);
        EXPECT_FALSE(tap.hasMail());
    });
}

TEST(TapCopy, RequestsThatTheLibraryMakesItselfAreSeenWithTheirAnswers) {
    Process server = start([] {
        openChannel("B");
        vosMsgRegisterBldrun(buildText);
        vosMsgRegisterCcdObjInfoGet(describeObject);
        ready();
        receive();
    });
    server.awaitReady();
    run([] {
        openChannel("A");
        TapPeer tap;
        tap.on();
        char text[100];
        uint32_t room = sizeof text;
        EXPECT_EQ(vosMsgBldrunSend("B", text, &room, 1, 2), VOS_OK);
        const Copy build = tap.next();
        expectCopy(build, VOS_MSG_TAP_SENT, VOS_MSG_TAP_REQUEST, VOS_MSG_TAP_REQUESTER, build.own(), "/tmp/vos/BHigh");
        const Copy built = tap.next();
        expectCopy(built, VOS_MSG_TAP_RECEIVED, VOS_MSG_TAP_ANSWER, VOS_MSG_TAP_REQUESTER, build.own(),
                   "/tmp/vos/BHigh");
        EXPECT_EQ(built.message.textAt(32, 10), "configured");
        EXPECT_EQ(built.message.size(), 42u);
        uint32_t o[10];
        uint32_t table[32];
        char name[] = "abc";
        EXPECT_EQ(vosMsgCcdObjInfoGetSend(&code, "B", name, 1, &o[0], &o[1], &o[2], &o[3], &o[4], &o[5], table, &o[6],
                                          &o[7], &o[8], &o[9]),
                  VOS_OK);
        const Copy ask = tap.next();
        expectCopy(ask, VOS_MSG_TAP_SENT, VOS_MSG_TAP_REQUEST, VOS_MSG_TAP_REQUESTER, ask.own(), "/tmp/vos/B");
        expectCopy(tap.next(), VOS_MSG_TAP_RECEIVED, VOS_MSG_TAP_ANSWER, VOS_MSG_TAP_REQUESTER, ask.own(),
                   "/tmp/vos/B");
        EXPECT_EQ(vosMsgDebugVos("B", VOS_DEBUG_ERROR), VOS_OK);
        expectCopy(tap.next(), VOS_MSG_TAP_SENT, VOS_MSG_TAP_ONE_WAY, VOS_MSG_TAP_OTHER, "", "/tmp/vos/B");
        EXPECT_TRUE(Peer{}.send("/tmp/vos/B", application("end")));
    });
    server.finish();
}

TEST(TapCopy, WhatTheApplicationMovesWithTheStreamFunctionsIsSeen) {
    run([] {
        openChannel("A");
        TapPeer tap;
        tap.on();
        Peer own{"/tmp/vos/own"};
        const Bytes sent = application("streamed");
        const sockaddr_un to = addressOf("/tmp/vos/own");
        const auto *const address = reinterpret_cast<const sockaddr *>(&to);
        EXPECT_EQ(vosMsgSendStream(own.fd(), sent.data(), 40, address, sizeof to), 40);
        const Copy out = tap.next();
        expectCopy(out, VOS_MSG_TAP_SENT, VOS_MSG_TAP_PLAIN, VOS_MSG_TAP_OTHER, "", "/tmp/vos/own");
        EXPECT_EQ(out.message, sent);
        Bytes room(100);
        sockaddr_un from{};
        uint32_t length = 10; /* less than the address has: no more of it may be read */
        EXPECT_EQ(vosMsgRecvStream(own.fd(), room.data(), 100, reinterpret_cast<sockaddr *>(&from), &length), 40);
        const Copy in = tap.next();
        expectCopy(in, VOS_MSG_TAP_RECEIVED, VOS_MSG_TAP_PLAIN, VOS_MSG_TAP_OTHER, "", "/tmp/vos");
        EXPECT_EQ(in.message, sent);
        /* in many pieces, of which 15 are copied */
        std::vector<uint8_t> bytes(20);
        std::vector<iovec> pieces;
        for (uint8_t i = 0; i < 20; ++i) {
            bytes[i] = i;
            pieces.push_back({&bytes[i], 1});
        }
        msghdr record{};
        record.msg_name = const_cast<sockaddr_un *>(&to);
        record.msg_namelen = sizeof to;
        record.msg_iov = pieces.data();
        record.msg_iovlen = pieces.size();
        EXPECT_EQ(vosMsgSendStream1(own.fd(), &record, 20), 20);
        const Copy gathered = tap.next();
        EXPECT_EQ(gathered.head.ulWholeLen, 20u);
        EXPECT_EQ(gathered.message, Bytes(bytes.begin(), bytes.begin() + 15));
        sockaddr_un sender{};
        record.msg_name = &sender;
        EXPECT_EQ(vosMsgRecvStream1(own.fd(), &record, 20), 20);
        const Copy scattered = tap.next();
        EXPECT_EQ(scattered.peer(), "/tmp/vos/own");
        EXPECT_EQ(scattered.head.ulWholeLen, 20u);
    });
}

TEST(TapCopy, AStreamFunctionWithBadMemoryFailsAsWithoutATap) {
    run([] {
        openChannel("A");
        vosDebugConfig(0);
        TapPeer tap;
        tap.on();
        const Peer own{"/tmp/vos/own"};
        const sockaddr_un to = addressOf("/tmp/vos/own");
        const auto *const address = reinterpret_cast<const sockaddr *>(&to);
        uint32_t length = sizeof to;
        EXPECT_EQ(vosMsgSendStream(own.fd(), nullptr, 40, address, sizeof to), VOS_ERROR);
        EXPECT_EQ(errno, EFAULT);
        EXPECT_EQ(vosMsgSendStream(-1, nullptr, 40, nullptr, 7), VOS_ERROR);
        EXPECT_EQ(errno, EBADF);
        EXPECT_EQ(vosMsgSendStream1(own.fd(), nullptr, 40), VOS_ERROR);
        EXPECT_EQ(errno, EFAULT);
        EXPECT_EQ(vosMsgRecvStream(-1, nullptr, 40, nullptr, &length), VOS_ERROR);
        EXPECT_EQ(errno, EBADF);
        EXPECT_EQ(vosMsgRecvStream1(own.fd(), nullptr, 40), VOS_ERROR);
        EXPECT_EQ(errno, EFAULT);
        for (const int error : {EFAULT, EBADF, EFAULT, EBADF, EFAULT}) {
            const Copy copy = tap.next();
            EXPECT_EQ(copy.head.iResult, -1);
            EXPECT_EQ(copy.head.iErrno, error);
            EXPECT_EQ(copy.head.ulWholeLen, 0u);
        }
        char text[] = "x";
        EXPECT_EQ(vosMsgSend("own", reinterpret_cast<void *>(8), 40, 1, &code, 10, 0), VOS_ERROR);
        EXPECT_EQ(errno, EFAULT); /* the copy cannot be made of it either: it is lost */
        EXPECT_EQ(vosMsgSend("own", text, 1, 1, &code, 10, 0), VOS_OK);
        EXPECT_EQ(tap.next().head.ullLost, 1u);
    });
}

TEST(TapCopy, TheRequestsOfTapsAndCopiesAreNotCopied) {
    run([] {
        openChannel("A");
        vosDebugConfig(0);
        TapPeer tap;
        tap.on();
        TapPeer other{"other"};
        other.on();
        EXPECT_FALSE(tap.hasMail());
        /* A process that is a tap itself, with its message socket: its copies are not copied again. */
        const Bytes request = tapRequest(VOS_MSG_TAP_ON, "/tmp/vos/A");
        const sockaddr_un self = addressOf("/tmp/vos/A");
        EXPECT_EQ(
            vosMsgSendStream(g_vosFdProc, request.data(), 140, reinterpret_cast<const sockaddr *>(&self), sizeof self),
            140);
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        EXPECT_FALSE(tap.hasMail());
        EXPECT_TRUE(Peer{}.send("/tmp/vos/A", application("once")));
        EXPECT_GT(receive().result, 0);
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT); /* the copy, and the last word */
        EXPECT_EQ(tap.next().message, application("once"));
        EXPECT_FALSE(tap.hasMail());
        EXPECT_EQ(other.next().message, application("once"));
        EXPECT_FALSE(other.hasMail());
    });
}

TEST(TapCopy, OneMoreSystemCallForEachMessageAndTapAndNoneWhenItIsOff) {
    run([] {
        openChannel("A");
        knowProcessId();
        TapPeer tap;
        TapPeer two{"two"};
        const Peer other{"/tmp/vos/B"};
        char text[] = "text";
        const auto request = [&] { vosMsgSend("B", text, 4, 1, &code, 3000, 0); };
        const std::vector<std::string> bare{"socket",     "setsockopt", "setsockopt", "unlink", "bind", "setsockopt",
                                            "setsockopt", "connect",    "sendmsg",    "unlink", "close"};
        EXPECT_EQ(Faults::record(request), bare);
        tap.on();
        request(); /* the thread's id is asked for once */
        const auto withoutClocks = [&] {
            auto calls = Faults::record(request);
            std::erase(calls, "clock_gettime"); /* no system call, but memory that the kernel shares */
            return calls;
        };
        std::vector<std::string> copied = bare;
        copied.insert(copied.begin() + 9, "sendmsg");
        EXPECT_EQ(withoutClocks(), copied);
        two.on();
        copied.insert(copied.begin() + 9, "sendmsg");
        EXPECT_EQ(withoutClocks(), copied);
        tap.off();
        two.off();
        EXPECT_EQ(Faults::record(request), bare);
    });
}
