/* SPDX-License-Identifier: MIT */
/* Descriptions of configuration objects: the request and the answer. */
#include <thread>

#include "peer.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

const char *const kServer = "/tmp/vos/A";

int calls;

int32_t describe(char *name, uint32_t argument, uint32_t *o1, uint32_t *o2, uint32_t *o3, uint32_t *o4, uint32_t *o5,
                 uint32_t *o6, uint32_t *table, uint32_t *count, uint32_t *o8, uint32_t *o9, uint32_t *o10) {
    ++calls;
    uint32_t *const outputs[] = {o1, o2, o3, o4, o5, o6, o8, o9, o10};
    for (uint32_t i = 0; i < 9; ++i) {
        EXPECT_EQ(*outputs[i], 0u);
        *outputs[i] = 101 + i;
    }
    EXPECT_EQ(*count, 0u);
    for (uint32_t i = 0; i < 32; ++i) {
        EXPECT_EQ(table[i], 0u);
        if (argument == 32) table[i] = 1000 + i;
    }
    *count = argument;
    errno = EBUSY;
    return std::string(name) == "missing" ? -1 : 0;
}

void openWithHandler() {
    openChannel("A");
    vosMsgRegisterCcdObjInfoGet(describe);
}

/* The outputs of one exchange. */
struct Answer {
    int32_t result = 0;
    uint32_t code = 77;
    uint32_t out[11] = {};
    uint32_t table[33] = {};
};

Answer ask(const char *server, const char *object, uint32_t argument) {
    Answer a;
    std::fill(std::begin(a.out), std::end(a.out), 77u);
    a.table[32] = 77;
    a.result = vosMsgCcdObjInfoGetSend(&a.code, server, object, argument, &a.out[1], &a.out[2], &a.out[3], &a.out[4],
                                       &a.out[5], &a.out[6], a.table, &a.out[7], &a.out[8], &a.out[9], &a.out[10]);
    EXPECT_EQ(a.table[32], 77u) << "written behind the table";
    return a;
}

Process describing() {
    Process server = start([] {
        openWithHandler();
        ready();
        receive(100, 20000);
    });
    server.awaitReady();
    return server;
}

/* Sends a request to a responder of the test, which answers with these bytes. */
Answer askAndGet(const Bytes &answer) {
    static Peer responder{"/tmp/vos/byHand"};
    std::thread other([&] {
        responder.receive();
        EXPECT_TRUE(responder.send(responder.sender, answer));
    });
    const Answer got = ask("byHand", "object", 2);
    other.join();
    return got;
}

Bytes answerWith(uint32_t count) {
    Bytes bytes = message({.type = 4, .value1 = 2, .value2 = 101, .value3 = 102, .value4 = EBUSY});
    bytes.word(8).text("object").fill(2);
    for (uint32_t i = 3; i <= 6; ++i) bytes.word(100 + i);
    bytes.word(count);
    for (uint32_t i = 0; i < 32; ++i) bytes.word(1000 + i);
    return bytes.word(108).word(109).word(110);
}

}  // namespace

TEST(ObjectInfo, WithAFullTableEveryOutputComesBackAndTheRespondersErrno) {
    Process server = describing();
    run([] {
        errno = 0;
        const Answer got = ask("A", "object", 32);
        EXPECT_EQ(errno, EBUSY);
        EXPECT_EQ(got.result, VOS_OK);
        EXPECT_EQ(got.code, 0u);
        for (uint32_t i = 1; i <= 6; ++i) EXPECT_EQ(got.out[i], 100 + i);
        EXPECT_EQ(got.out[7], 32u);
        for (uint32_t i = 8; i <= 10; ++i) EXPECT_EQ(got.out[i], 99 + i);
        for (uint32_t i = 0; i < 32; ++i) EXPECT_EQ(got.table[i], 1000 + i);
        EXPECT_EQ(requesterPathsLeft(), 0);
    });
}

TEST(ObjectInfo, WithTwoTableWordsTheLastOutputsAreTableWordsThreeToFive) {
    Process server = describing();
    run([] {
        const Answer got = ask("A", "object", 2);
        EXPECT_EQ(got.result, VOS_OK);
        EXPECT_EQ(got.out[7], 2u);
        for (uint32_t i = 8; i <= 10; ++i) EXPECT_EQ(got.out[i], 0u); /* as the handler left them */
        const Answer byHand = askAndGet(answerWith(2));
        EXPECT_EQ(byHand.out[8], 1002u);
        EXPECT_EQ(byHand.out[9], 1003u);
        EXPECT_EQ(byHand.out[10], 1004u);
        EXPECT_EQ(byHand.table[1], 1001u);
        EXPECT_EQ(byHand.table[2], 0u);
    });
}

TEST(ObjectInfo, TheCodeOfTheResponderIsReturnedAndTheOutputsAreUnchanged) {
    Process server = describing();
    run([] {
        const Answer got = ask("A", "missing", 32);
        EXPECT_EQ(got.result, VOS_OK);
        EXPECT_EQ(got.code, 0xFFFFFFFFu);
        for (uint32_t i = 1; i <= 10; ++i) EXPECT_EQ(got.out[i], 77u);
    });
}

TEST(ObjectInfo, TheNameIsPaddedToAWholeWord) {
    run([] {
        Peer responder{"/tmp/vos/byHand"};
        vosDebugConfig(0);
        const auto requestFor = [&](const char *name) {
            std::thread other([&] { ask("byHand", name, 5); });
            const Bytes request = responder.receive();
            EXPECT_TRUE(responder.send(responder.sender, message({.retCode = 1})));
            other.join();
            return request;
        };
        const Bytes two = requestFor("ab");
        EXPECT_EQ(two.size(), 36u);
        EXPECT_EQ(Bytes(two.begin(), two.begin() + 32), message({.type = 4, .value1 = 5, .value2 = 4}));
        EXPECT_EQ(two.textAt(32, 3), std::string("ab\0", 3));
        EXPECT_EQ(requestFor("abc").wordAt(16), 4u);
        const Bytes four = requestFor("abcd");
        EXPECT_EQ(four.wordAt(16), 8u);
        EXPECT_EQ(four.size(), 40u);
    });
}

TEST(ObjectInfo, TheAnswerIsLaidOutWordByWordAndSentWhateverTheNoReturnWordSays) {
    run([] {
        openWithHandler();
        Peer client{"/tmp/vos/client"};
        EXPECT_TRUE(client.send(kServer,
                                message({.type = 4, .noReturn = 1, .value1 = 32, .value2 = 8}).text("object").fill(2)));
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        Bytes expected =
            message({.type = 4, .noReturn = 1, .value1 = 32, .value2 = 101, .value3 = 102, .value4 = EBUSY});
        expected.word(8).text("object").fill(2);
        for (uint32_t i = 103; i <= 106; ++i) expected.word(i);
        expected.word(32);
        for (uint32_t i = 0; i < 32; ++i) expected.word(1000 + i);
        expected.word(107).word(108).word(109);
        EXPECT_EQ(client.receive(), expected);
    });
}

TEST(ObjectInfo, ARequestWhoseNameIsNotWholeIsDropped) {
    const auto malformed = [](const Bytes &bytes) {
        const Outcome outcome = run([&] {
            openWithHandler();
            EXPECT_TRUE(Peer{"/tmp/vos/client"}.send(kServer, bytes));
            EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
            EXPECT_EQ(calls, 0);
        });
        EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgProcessInternel:object request of " +
                                                    std::to_string(bytes.size()) + " bytes is malformed."));
    };
    for (const uint32_t size : {0u, 9u, 64568u, 64569u, 0x7FFFFFFFu, 0xFFFFFFE0u, 0xFFFFFFFFu})
        malformed(message({.type = 4, .value2 = size}).text("object").fill(2));
    malformed(message({.type = 4, .value2 = 8}).text("objectob"));
    malformed(message({.type = 4, .value2 = 4}));
}

TEST(ObjectInfo, ARequestWhoseAnswerWouldNotFitIsDroppedAndOneWordLessIsAnswered) {
    const auto named = [](uint32_t size) {
        return message({.type = 4, .value1 = 32, .value2 = size}).text("object").fill(size - 6);
    };
    const Outcome outcome = run([&] {
        openWithHandler();
        Peer client{"/tmp/vos/client"};
        EXPECT_TRUE(client.send(kServer, named(64600 - 196 + 1)));
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        EXPECT_EQ(calls, 0);
        EXPECT_TRUE(client.send(kServer, named(64600 - 196)));
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        EXPECT_EQ(client.receive().size(), 64600u);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgProcessInternel:object answer does not fit a message."));
}

TEST(ObjectInfo, AParsedLengthThatReachesTheBufferFailsTheAssertion) {
    const Outcome outcome = run([] {
        openWithHandler();
        EXPECT_TRUE(Peer{}.send(kServer, message({.type = 4, .value2 = 64568}).fill(64568)));
        receive(100, 0);
    });
    EXPECT_TRUE(outcome.killedBy(SIGABRT));
    EXPECT_THAT(outcome.output, testing::HasSubstr("Assertion failed!iRecvLen < VOS_MSG_BUFFER_LEN, vos/linux/vosMsg, "
                                                   "vosMsgProcessInternel, line="));
}

TEST(ObjectInfo, WithoutAHandlerNothingIsAnswered) {
    const Outcome outcome = run([] {
        openChannel("A");
        Peer client{"/tmp/vos/client"};
        EXPECT_TRUE(client.send(kServer, message({.type = 4, .value2 = 8}).text("object").fill(2)));
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        EXPECT_FALSE(client.hasMail());
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(ObjectInfo, AMalformedAnswerIsRefusedAndNothingIsWritten) {
    const auto refused = [](const Bytes &answer) {
        const Outcome outcome = run([&] {
            const Answer got = askAndGet(answer);
            EXPECT_EQ(got.result, VOS_ERROR);
            EXPECT_EQ(got.code, 77u);
            for (uint32_t i = 1; i <= 10; ++i) EXPECT_EQ(got.out[i], 77u);
        });
        EXPECT_TRUE(outcome.exited(0));
        EXPECT_THAT(
            withoutTuning(outcome.messages()),
            ElementsAre("vosMsgCcdObjInfoGetSend:answer of " + std::to_string(answer.size()) + " bytes is malformed."));
    };
    const Bytes whole = answerWith(32);
    for (const std::size_t size : {std::size_t{1}, std::size_t{31}, std::size_t{32}, std::size_t{40}, whole.size() - 1})
        refused(Bytes(whole.begin(), whole.begin() + static_cast<long>(size)));
    refused(answerWith(33));
    refused(answerWith(0xFFFFFFFF));
    refused(message({.type = 4}).word(0xFFFFFFFF).fill(300));
    refused({});
}

TEST(ObjectInfo, ArgumentsThatCannotBeUsedAreRefused) {
    const Outcome outcome = run([] {
        strcpy(szVosProcName, "scenario");
        EXPECT_EQ(ask("A", nullptr, 1).result, VOS_ERR_PARAM);
        EXPECT_EQ(ask(nullptr, "object", 1).result, VOS_ERR_PARAM);
        EXPECT_EQ(ask("A", std::string(64568, 'n').c_str(), 1).result, VOS_ERR_TOO_LONG);
        EXPECT_EQ(ask("A", std::string(200000, 'n').c_str(), 1).result, VOS_ERR_TOO_LONG);
    });
    EXPECT_THAT(
        outcome.messages(),
        ElementsAre("vosMsgCcdObjInfoGetSend:parameter error.", "vosMsgCcdObjInfoGetSend:parameter error.",
                    "vosMsgCcdObjInfoGetSend:ulMsgSize too long.", "vosMsgCcdObjInfoGetSend:ulMsgSize too long."));
}

TEST(ObjectInfo, EachFailingCallIsNamedAndSocketAndPathAreGone) {
    const auto prepare = [] {
        freshWorld();
        stay("/tmp/vos/A");
    };
    const auto send = [] {
        const long result = ask("A", "object", 1).result;
        EXPECT_EQ(requesterPathsLeft(), 0);
        return result;
    };
    const std::pair<const char *, std::string> expected[] = {
        {"socket", "vosMsgCcdObjInfoGetSend:vosMsgLocalSocket failed."},
        {"bind", "vosMsgCcdObjInfoGetSend:local bind iSocketFd "},
        {"connect", errnoLine("vosMsgCcdObjInfoGetSend:connect", EIO)},
        {"write", errnoLine("vosMsgCcdObjInfoGetSend:write", EIO)},
        {"read", errnoLine("vosMsgCcdObjInfoGetSend:read", EIO)},
    };
    for (const auto &[call, line] : expected) {
        const Attempt attempt = failCall({.call = call}, prepare, send);
        EXPECT_EQ(attempt.result, VOS_ERROR) << call;
        EXPECT_THAT(attempt.messages, ElementsAre(StartsWith(line))) << call;
        expectNothingKept({attempt});
    }
}

TEST(ObjectInfo, AShortWriteIsLoggedAndTheAnswerStillAwaited) {
    const Outcome outcome = run([] {
        freshWorld();
        Faults::arm({.call = "write", .shortTo = 33});
        const Answer got = askAndGet(answerWith(32));
        EXPECT_TRUE(Faults::disarm());
        EXPECT_EQ(got.result, VOS_OK);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgCcdObjInfoGetSend:write need send 40 but send only 33."));
}

namespace {

int32_t describeByAsking(char *name, uint32_t, uint32_t *o1, uint32_t *, uint32_t *, uint32_t *, uint32_t *, uint32_t *,
                         uint32_t *, uint32_t *, uint32_t *, uint32_t *, uint32_t *) {
    EXPECT_STREQ(name, "object");
    const Answer got = askAndGet(answerWith(32));
    EXPECT_EQ(got.result, VOS_OK);
    EXPECT_STREQ(name, "object");
    *o1 = got.out[1];
    return 0;
}

}  // namespace

TEST(ObjectInfo, ADescriberMayAskAnotherProcessMeanwhile) {
    run([] {
        openChannel("A");
        vosMsgRegisterCcdObjInfoGet(describeByAsking);
        Peer client{"/tmp/vos/client"};
        EXPECT_TRUE(client.send(kServer, message({.type = 4, .value2 = 8}).text("object").fill(2)));
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        const Bytes answer = client.receive();
        EXPECT_EQ(answer.wordAt(16), 101u);
        EXPECT_EQ(answer.textAt(36, 6), "object");
    });
}

TEST(ObjectInfo, ARequesterWhosePathFillsItsAddressIsAnswered) {
    run([] {
        openWithHandler();
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        memset(address.sun_path, 'c', sizeof address.sun_path);
        memcpy(address.sun_path, "/tmp/vos/", 9);
        Peer client;
        ASSERT_EQ(bind(client.fd(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        EXPECT_TRUE(client.send(kServer, message({.type = 4, .value1 = 32, .value2 = 8}).text("object").fill(2)));
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        EXPECT_EQ(client.receive().size(), 204u);
    });
}
