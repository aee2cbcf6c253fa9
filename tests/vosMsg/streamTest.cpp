/* SPDX-License-Identifier: MIT */
/* The four transfers. */
#include <sys/uio.h>

#include "peer.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct Pair {
    int ends[2] = {-1, -1};
    Pair() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends), 0); }
    Pair(const Pair &) = delete;
    Pair &operator=(const Pair &) = delete;
    ~Pair() {
        close(ends[0]);
        close(ends[1]);
    }
};

/* One datagram of 4 bytes through both ends with the plain or with the gathered calls. */
long through(bool gathered) {
    const Pair pair;
    char text[] = "ping";
    char room[8] = {};
    iovec piece{text, 4};
    msghdr out{};
    out.msg_iov = &piece;
    out.msg_iovlen = 1;
    const int32_t sent =
        gathered ? vosMsgSendStream1(pair.ends[0], &out, 4) : vosMsgSendStream(pair.ends[0], text, 4, nullptr, 0);
    if (sent < 0) return sent;
    iovec target{room, sizeof room};
    msghdr in{};
    in.msg_iov = &target;
    in.msg_iovlen = 1;
    sockaddr_un from{};
    uint32_t length = sizeof from;
    return gathered ? vosMsgRecvStream1(pair.ends[1], &in, 8)
                    : vosMsgRecvStream(pair.ends[1], room, 8, reinterpret_cast<sockaddr *>(&from), &length);
}

}  // namespace

TEST(Stream, EachTransferMovesOneDatagramAndTracesIt) {
    const Outcome outcome = run([] {
        vosDebugConfig(VOS_DEBUG_TRACE);
        EXPECT_EQ(through(false), 4);
        EXPECT_EQ(through(true), 4);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgSendStream:start.", "vosMsgSendStream:end return 4.",
                                                "vosMsgRecvStream:start.", "vosMsgRecvStream:end return 4.",
                                                "vosMsgSendStream1:start.", "vosMsgSendStream1:end return 4.",
                                                "vosMsgRecvStream1:start.", "vosMsgRecvStream1:end return 4."));
}

TEST(Stream, EachFailingCallIsNamedWithoutAnEndLine) {
    for (const bool gathered : {false, true}) {
        const auto attempts =
            failEachCall([] { strcpy(szVosProcName, "scenario"); }, [=] { return through(gathered); });
        ASSERT_EQ(attempts.size(), 2u);
        expectNothingKept(attempts);
        const std::string suffix = gathered ? "1" : "";
        const std::string send = gathered ? "sendmsg" : "sendto";
        const std::string receive = gathered ? "recvmsg" : "recvfrom";
        EXPECT_EQ(at(attempts, send + "#1").result, VOS_ERROR);
        EXPECT_THAT(at(attempts, send + "#1").messages,
                    ElementsAre(errnoLine("vosMsgSendStream" + suffix + ":" + send, EIO)));
        EXPECT_EQ(at(attempts, receive + "#1").result, VOS_ERROR);
        EXPECT_THAT(at(attempts, receive + "#1").messages,
                    ElementsAre(errnoLine("vosMsgRecvStream" + suffix + ":" + receive, EIO)));
    }
}

TEST(Stream, AnEmptyDatagramIsAFailureForThePlainReceiveAndZeroForTheScattered) {
    const Outcome outcome = run([] {
        const Pair pair;
        EXPECT_EQ(send(pair.ends[0], "", 0, 0), 0);
        EXPECT_EQ(send(pair.ends[0], "", 0, 0), 0);
        char room[8];
        EXPECT_EQ(vosMsgRecvStream(pair.ends[1], room, 8, nullptr, nullptr), VOS_ERROR);
        msghdr in{};
        EXPECT_EQ(vosMsgRecvStream1(pair.ends[1], &in, 0), 0);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgRecvStream:recvfrom failed due to peer shutdown."));
}

TEST(Stream, AShortSendIsLoggedByThePlainSendOnly) {
    const Outcome outcome = run([] {
        const Pair pair;
        char text[] = "ping";
        iovec piece{text, 4};
        msghdr out{};
        out.msg_iov = &piece;
        out.msg_iovlen = 1;
        Faults::arm({.call = "sendto", .shortTo = 3});
        EXPECT_EQ(vosMsgSendStream(pair.ends[0], text, 4, nullptr, 0), 3);
        EXPECT_TRUE(Faults::disarm());
        Faults::arm({.call = "sendmsg", .shortTo = 3});
        EXPECT_EQ(vosMsgSendStream1(pair.ends[0], &out, 4), 3);
        EXPECT_TRUE(Faults::disarm());
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgSendStream:sendto need send 4 but send only 3."));
}

TEST(Stream, SizesBeyondTheBuffersAreReportedAndTriedAllTheSame) {
    const Outcome outcome = run([] {
        const Pair pair;
        std::vector<char> large(6291457);
        msghdr nothing{};
        vosDebugConfig(VOS_DEBUG_ERROR);
        EXPECT_EQ(vosMsgSendStream(pair.ends[0], large.data(), 4194305, nullptr, 0), VOS_ERROR);
        EXPECT_EQ(vosMsgSendStream1(pair.ends[0], &nothing, 4194305), 0);
        EXPECT_EQ(vosMsgSendStream1(pair.ends[0], &nothing, 4194304), 0);
        EXPECT_EQ(send(pair.ends[0], "ping", 4, 0), 4);
        EXPECT_EQ(vosMsgRecvStream1(pair.ends[1], &nothing, 6291457), 0); /* the two empty ones */
        EXPECT_EQ(vosMsgRecvStream1(pair.ends[1], &nothing, 6291457), 0);
        EXPECT_EQ(vosMsgRecvStream(pair.ends[1], large.data(), 6291457, nullptr, nullptr), 4);
        vosDebugConfig(VOS_DEBUG_TRACE);
        EXPECT_EQ(send(pair.ends[0], "ping", 4, 0), 4);
        EXPECT_EQ(vosMsgRecvStream1(pair.ends[1], &nothing, 6291457), 0);
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosMsgSendStream:ulSize 4194305 is bigger than send buffer lenght 4194304.",
                            errnoLine("vosMsgSendStream:sendto", EMSGSIZE),
                            "vosMsgSendStream1:ulSize 4194305 is bigger than send buffer lenght 4194304.",
                            "vosMsgRecvStream:ulSize 6291457 is bigger than recv buffer lenght 6291456.",
                            "vosMsgRecvStream1:start.",
                            "vosMsgRecvStream1:ulSize 6291457 is bigger than recv buffer lenght 6291456.",
                            "vosMsgRecvStream1:end return 0."));
}
