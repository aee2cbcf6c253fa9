/* SPDX-License-Identifier: MIT */
/* Access to configuration objects: the arguments of the handler, and the answer that the requester gets. */
#include "peer.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

const char *const kServer = "/tmp/vos/A";

/* What the handler got, and what it is to return. */
std::vector<std::string> seen;
std::function<int32_t(uint32_t *indexes, int32_t *count, void *value, uint32_t *length, uint16_t *word)> act;

int32_t handle(uint32_t operation, char *name, uint32_t *indexes, int32_t *count, void *value, uint32_t *length,
               uint16_t *word) {
    std::string line = std::to_string(operation) + " " + name + " [";
    for (int32_t i = 0; i < *count; ++i) line += std::to_string(indexes[i]) + ",";
    seen.push_back(line + "] " + std::to_string(*length) + " " + std::to_string(*word));
    return act ? act(indexes, count, value, length, word) : 0;
}

struct Object {
    uint32_t operation = 1;
    std::vector<uint32_t> indexes{};
    std::string name = std::string("obj\0\0\0\0\0", 8); /* puts the value on an 8-byte boundary */
    uint32_t valueLength = 4;
    std::string value = "abcd";
    uint32_t word = 7;
    uint32_t noReturn = 0;
};

Bytes request(const Object &object) {
    Bytes bytes = message({.type = VOS_MSG_TYPE_CCD,
                           .noReturn = object.noReturn,
                           .value1 = object.operation,
                           .value2 = static_cast<uint32_t>(object.indexes.size()),
                           .value3 = object.word});
    for (const uint32_t index : object.indexes) bytes.word(index);
    bytes.word(static_cast<uint32_t>(object.name.size())).text(object.name);
    return bytes.word(object.valueLength).text(object.value);
}

/* Sends to the normal socket of this process and runs the receive loop until no message is left. */
void serve(const Peer &client, const Bytes &bytes) {
    EXPECT_TRUE(client.send(kServer, bytes));
    EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
}

void openWithHandler() {
    openChannel("A");
    vosMsgRegisterCcd(handle);
}

/* One hostile request: the process continues, the handler is not called, one line is written. */
void expectDropped(const Bytes &bytes, const std::string &line) {
    const Outcome outcome = run([&] {
        openWithHandler();
        Peer client{"/tmp/vos/client"};
        serve(client, bytes);
        EXPECT_THAT(seen, IsEmpty());
        EXPECT_FALSE(client.hasMail());
    });
    EXPECT_TRUE(outcome.exited(0)) << line;
    EXPECT_THAT(outcome.messages(), ElementsAre(line));
}

void expectAssertion(const Bytes &bytes, const std::string &expression, const std::string &action = {}) {
    const Outcome outcome = run([&] {
        openWithHandler();
        if (!action.empty())
            act = [](uint32_t *, int32_t *, void *, uint32_t *length, uint16_t *) {
                *length = 64600;
                return 0;
            };
        serve(Peer{}, bytes);
    });
    EXPECT_TRUE(outcome.killedBy(SIGABRT));
    EXPECT_THAT(outcome.output, testing::HasSubstr("scenario(" + std::to_string(outcome.pid) + "):Assertion failed!" +
                                                   expression + ", vos/linux/vosMsg, vosMsgProcessInternel, line="));
}

}  // namespace

TEST(ConfigObject, TheHandlerSeesTheRequestAndTheAnswerCarriesItsResult) {
    run([] {
        openWithHandler();
        Peer client{"/tmp/vos/client"};
        act = [](uint32_t *indexes, int32_t *count, void *value, uint32_t *length, uint16_t *word) {
            EXPECT_EQ(reinterpret_cast<uintptr_t>(value) % 8, 0u);
            EXPECT_EQ(memcmp(value, "abcd", 4), 0);
            memcpy(value, "answer", 6);
            indexes[0] = 21;
            *count = 1;
            *length = 6;
            *word = 9;
            errno = ENODEV;
            return 0;
        };
        serve(client, request({.operation = 3, .indexes = {11, 12}, .word = 0xABCD0007}));
        EXPECT_THAT(seen, ElementsAre("3 obj [11,12,] 4 7"));
        const Bytes answer = client.receive();
        const Bytes head = message({.type = 3, .value1 = 3, .value2 = 1, .value3 = 9, .value4 = ENODEV});
        EXPECT_EQ(answer, Bytes(head).word(21).word(8).text({"obj\0\0\0\0\0", 8}).word(6).text("answer"));
    });
}

TEST(ConfigObject, AFailureIsCarriedBackWithoutAValue) {
    run([] {
        openWithHandler();
        Peer client{"/tmp/vos/client"};
        act = [](uint32_t *, int32_t *, void *, uint32_t *length, uint16_t *) {
            *length = 0xFFFFFFFF; /* does not matter when no value is sent */
            return -6;
        };
        serve(client, request({}));
        const Bytes answer = client.receive();
        EXPECT_EQ(answer.wordAt(8), 0xFFFFFFFAu);
        EXPECT_EQ(answer.size(), 32u + 4 + 8 + 4);
        EXPECT_EQ(answer.wordAt(44), 0xFFFFFFFFu);
    });
}

TEST(ConfigObject, WithANoReturnWordNothingIsAnswered) {
    run([] {
        openWithHandler();
        Peer client{"/tmp/vos/client"};
        for (const uint32_t noReturn : {1u, 2u}) serve(client, request({.noReturn = noReturn}));
        EXPECT_EQ(seen.size(), 2u);
        EXPECT_FALSE(client.hasMail());
    });
}

TEST(ConfigObject, WithoutAHandlerNothingIsAnswered) {
    const Outcome outcome = run([] {
        openChannel("A");
        Peer client{"/tmp/vos/client"};
        serve(client, request({}));
        serve(client, message({.type = 3, .value2 = 0xFFFFFFFF}));
        EXPECT_FALSE(client.hasMail());
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(ConfigObject, ARequesterMayAnnounceMoreBytesThanItSends) {
    run([] {
        openWithHandler();
        Peer client{"/tmp/vos/client"};
        act = [](uint32_t *, int32_t *, void *value, uint32_t *length, uint16_t *) {
            EXPECT_EQ(*length, 64600u - 48);
            memset(value, 'v', *length);
            return 0;
        };
        serve(client, request({.valueLength = 64600 - 48, .value = ""}));
        EXPECT_EQ(client.receive().size(), 64600u);
    });
}

TEST(ConfigObject, ThePiecesMustLieInsideTheBytesThatCame) {
    const std::string malformed = "vosMsgProcessInternel:ccd request of ";
    const auto line = [&](std::size_t size) { return malformed + std::to_string(size) + " bytes is malformed."; };
    /* no piece at all */
    expectDropped(message({.type = 3}), line(32));
    /* index words beyond the bytes, up to sums that wrap in 32 bits */
    for (const uint32_t count : {3u, 16142u, 20000u, 0x3FFFFFFFu, 0x40000000u, 0x7FFFFFFFu, 0xFFFFFFFFu})
        expectDropped(message({.type = 3, .value2 = count}).word(8), line(36));
    /* a name beyond the bytes */
    for (const uint32_t length : {9u, 64560u, 0x7FFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFCu})
        expectDropped(message({.type = 3}).word(length).text("obj").fill(5), line(44));
    /* a name without an end, and no name */
    expectDropped(message({.type = 3}).word(8).text("objobjob").word(4), line(48));
    expectDropped(message({.type = 3}).word(0).word(4), line(40));
    /* no value length */
    expectDropped(message({.type = 3}).word(8).text("obj").fill(5).fill(3), line(47));
}

TEST(ConfigObject, ARequesterWithALargerBufferThanTheReceiverGetsWhatTheReceiversBufferHolds) {
    for (const uint32_t announced : {64600u - 48, 64600u - 47, 64568u, 64600u, 0x80000000u, 0xFFFFFFFFu})
        run([=] {
            openWithHandler();
            Peer client{"/tmp/vos/client"};
            act = [](uint32_t *, int32_t *, void *value, uint32_t *length, uint16_t *) {
                EXPECT_EQ(*length, 64600u - 48);
                memset(value, 'v', *length);
                return 0;
            };
            serve(client, request({.valueLength = announced, .value = ""}));
            const Bytes answer = client.receive();
            EXPECT_EQ(answer.wordAt(44), 64600u - 48);
            EXPECT_EQ(answer.textAt(48, 64600 - 48), std::string(64600 - 48, 'v'));
        });
}

TEST(ConfigObject, AnnouncedBytesThatDidNotComeAreZeroForTheHandlerAndInTheAnswer) {
    run([] {
        openWithHandler();
        EXPECT_TRUE(Peer{}.send(kServer, application("a message of another process: " + std::string(1000, 's'))));
        EXPECT_EQ(receive(2000).result, 32 + 1030);
        Peer client{"/tmp/vos/client"};
        act = [](uint32_t *, int32_t *, void *value, uint32_t *length, uint16_t *) {
            EXPECT_EQ(std::string(static_cast<const char *>(value), 8), std::string("abcd\0\0\0\0", 8));
            EXPECT_EQ(*length, 64600u - 48);
            return 0;
        };
        serve(client, request({.valueLength = 0xFFFFFFFF}));
        EXPECT_EQ(client.receive().textAt(48, 64600 - 48), "abcd" + std::string(64600 - 48 - 4, '\0'));
    });
}

TEST(ConfigObject, BytesBehindTheAnnouncedLengthAreNotChanged) {
    run([] {
        openWithHandler();
        act = [](uint32_t *, int32_t *, void *value, uint32_t *length, uint16_t *) {
            EXPECT_EQ(*length, 2u);
            EXPECT_EQ(memcmp(value, "abcd", 4), 0);
            return 0;
        };
        Peer client{"/tmp/vos/client"};
        serve(client, request({.valueLength = 2}));
        EXPECT_EQ(client.receive().size(), 48u + 2);
    });
}

TEST(ConfigObject, AHandlerMayMakeRequestsOfItsOwn) {
    Process other = start([] {
        vosMsgRegisterCcdObjInfoGet([](char *, uint32_t, uint32_t *out, uint32_t *, uint32_t *, uint32_t *, uint32_t *,
                                       uint32_t *, uint32_t *, uint32_t *count, uint32_t *, uint32_t *, uint32_t *) {
            *out = 55;
            *count = 32;
            return 0;
        });
        openChannel("other");
        ready();
        const Received asked = receive(); /* first answers the request for the description */
        EXPECT_EQ(vosMsgResp(0, 7, "pong", 4, &asked.peer), VOS_OK);
    });
    other.awaitReady();
    run([] {
        openChannel("A");
        vosMsgRegisterCcd(handle);
        Peer client{"/tmp/vos/client"};
        act = [](uint32_t *indexes, int32_t *, void *value, uint32_t *length, uint16_t *) {
            uint32_t code = 9, out[10] = {}, table[32], count = 0;
            EXPECT_EQ(vosMsgCcdObjInfoGetSend(&code, "other", "obj", 0, &out[0], &out[1], &out[2], &out[3], &out[4],
                                              &out[5], table, &count, &out[6], &out[7], &out[8]),
                      VOS_OK);
            EXPECT_EQ(out[0], 55u);
            char text[] = "ping";
            EXPECT_EQ(vosMsgSend("other", text, 4, 0, &code, 20000, 0), VOS_OK);
            EXPECT_EQ(code, 7u);
            EXPECT_EQ(indexes[1], 12u);
            memcpy(value, text, 4);
            *length = 4;
            return 0;
        };
        serve(client, request({.indexes = {11, 12}}));
        const Bytes answer = client.receive();
        EXPECT_EQ(answer,
                  Bytes(message({.type = 3, .value1 = 1, .value2 = 2, .value3 = 7, .value4 = answer.wordAt(24)}))
                      .word(11)
                      .word(12)
                      .word(8)
                      .text({"obj\0\0\0\0\0", 8})
                      .word(4)
                      .text("pong"));
    });
    other.finish();
}

TEST(ConfigObject, AValueThatIsNotAlignedFailsTheAssertion) {
    expectAssertion(request({.name = std::string("obj\0", 4)}), "0 == (((uintptr_t)pValueBuf) % ZEB_LONGBYTES)");
}

TEST(ConfigObject, AParsedLengthThatReachesTheBufferFailsTheAssertionBeforeTheHandler) {
    expectAssertion(request({.name = "obj" + std::string(64600 - 40 - 3, '\0'), .valueLength = 0, .value = ""}),
                    "iRecvLen < VOS_MSG_BUFFER_LEN");
}

TEST(ConfigObject, AnAnswerValueBeyondTheBufferFailsTheAssertion) {
    expectAssertion(request({}), "*pValueLen <= (uint32_t)iTmpLen", "too long");
}

TEST(ConfigObject, AnIndexCountThatNoMessageCarriesIsRefusedAndNeverRead) {
    for (const int32_t left : {16143, 0x7FFFFFFF, -1}) {
        const Outcome outcome = run([=] {
            openWithHandler();
            Peer client{"/tmp/vos/client"};
            act = [=](uint32_t *, int32_t *count, void *, uint32_t *, uint16_t *) {
                *count = left;
                return 0;
            };
            serve(client, request({}));
            EXPECT_FALSE(client.hasMail());
        });
        EXPECT_THAT(outcome.messages(),
                    ElementsAre("vosMsgProcessInternel:ccd handler left " + std::to_string(left) + " indexes."));
    }
}

TEST(ConfigObject, AnAnswerThatDoesNotFitAMessageIsRefused) {
    const Outcome outcome = run([] {
        openWithHandler();
        Peer client{"/tmp/vos/client"};
        act = [](uint32_t *indexes, int32_t *count, void *, uint32_t *, uint16_t *) {
            *count = 16142;
            memset(indexes, 1, 16142 * sizeof *indexes); /* the array holds as many as a message can carry */
            return 0;
        };
        serve(client, request({}));
        EXPECT_FALSE(client.hasMail());
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgProcessInternel:ccd answer does not fit a message."));
}

TEST(ConfigObject, AnUnnamedRequesterCannotBeAnswered) {
    const Outcome outcome = run([] {
        openWithHandler();
        serve(Peer{}, request({}));
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(errnoLine("vosMsgSendStream:sendto", ENOTCONN)));
}

TEST(ConfigObject, TheObjectsNameIsTracedAsItIs) {
    const Outcome outcome = run([] {
        openWithHandler();
        Peer client{"/tmp/vos/client"};
        EXPECT_TRUE(client.send(kServer, request({.name = std::string("%s%n\0\0\0\0", 8)})));
        vosDebugConfig(VOS_DEBUG_TRACE);
        receive(100, 0);
        vosDebugConfig(0);
    });
    EXPECT_THAT(outcome.messages(), testing::IsSupersetOf({"vosMsgProcessInternel:receive VOS_MSG_TYPE_CCD.",
                                                           "vosMsgProcessInternel:ccd object %s%n."}));
}

TEST(ConfigObject, AFailingSendIsNamed) {
    const Attempt attempt = failCall(
        {.call = "sendto"},
        [] {
            openWithHandler();
            EXPECT_TRUE(stay("/tmp/vos/client")->send(kServer, request({})));
        },
        [] { return long{receive(100, 0).result}; });
    EXPECT_EQ(attempt.result, VOS_ERR_TIMEOUT);
    EXPECT_THAT(attempt.messages, ElementsAre(errnoLine("vosMsgSendStream:sendto", EIO)));
}
