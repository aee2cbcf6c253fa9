/* SPDX-License-Identifier: MIT */
/* What the three senders of application messages report: results, lines and errno. */
#include <sys/resource.h>

#include <thread>

#include "peer.h"

using namespace vostest;
using testing::ElementsAre;

namespace {

/* One sender that wants an answer, its receiver, and the function name in its lines. */
struct Sender {
    std::string name;
    std::string path;
    std::function<int32_t(uint32_t size, uint32_t *code, uint32_t timeoutMs)> send;
};

char text[64600] = "ping";

const std::vector<Sender> &senders() {
    static const std::vector<Sender> all{
        {"vosMsgSend", "/tmp/vos/B",
         [](uint32_t size, uint32_t *code, uint32_t ms) { return vosMsgSend("B", text, size, 0, code, ms, 0); }},
        {"vosMsgSend2", "/tmp/vos/B",
         [](uint32_t size, uint32_t *code, uint32_t ms) { return vosMsgSend2("B", text, size, 0, code, ms, 0); }},
        {"vosMsgThreadSend", "/tmp/vos/B1",
         [](uint32_t size, uint32_t *code, uint32_t ms) {
             return vosMsgThreadSend("B", 1, text, size, 0, code, ms, 0);
         }},
    };
    return all;
}

void eachSender(const std::function<void(const Sender &)> &look) {
    for (const Sender &each : senders()) {
        SCOPED_TRACE(each.name);
        look(each);
    }
}

/* Sends 4 bytes to a receiver that answers with `answer`. */
int32_t sendAndBeAnswered(const Sender &sender, uint32_t *code, const Bytes &answer) {
    Peer receiver{sender.path};
    std::thread other([&] {
        receiver.receive();
        EXPECT_TRUE(receiver.send(receiver.sender, answer));
    });
    const int32_t result = sender.send(4, code, 20000);
    other.join();
    return result;
}

}  // namespace

TEST(Result, WithoutAPlaceForTheCodeTheOtherResultsStayTheSame) {
    eachSender([](const Sender &sender) {
        const Outcome outcome = run([&] {
            freshWorld();
            EXPECT_EQ(mkdir("/tmp/vos", 0777), 0);
            EXPECT_EQ(sender.send(4, nullptr, 3000), VOS_ERROR);
            EXPECT_EQ(sender.send(64569, nullptr, 3000), VOS_ERR_TOO_LONG);
            const Peer silent{sender.path};
            EXPECT_EQ(sender.send(4, nullptr, 20), VOS_ERROR);
            EXPECT_EQ(requesterPathsLeft(), 0);
        });
        EXPECT_THAT(outcome.messages(),
                    ElementsAre(errnoLine(sender.name + ":connect " + sender.path, ENOENT),
                                sender.name + ":ulMsgSize too long.", errnoLine(sender.name + ":read", EAGAIN)));
    });
}

TEST(Result, WithoutAPlaceForTheCodeTheAnswerStillComes) {
    eachSender([](const Sender &sender) {
        run([&] {
            freshWorld();
            EXPECT_EQ(sendAndBeAnswered(sender, nullptr, message({.retCode = 7, .length = 4}, "pong")), VOS_OK);
            EXPECT_STREQ(text, "pong");
        });
    });
}

TEST(Result, AnAnswerWithoutAWholeHeaderIsLoggedAndCountsAsSuccess) {
    eachSender([](const Sender &sender) {
        const Outcome outcome = run([&] {
            freshWorld();
            uint32_t code = 77;
            EXPECT_EQ(sendAndBeAnswered(sender, &code, {}), VOS_OK);
            EXPECT_EQ(sendAndBeAnswered(sender, &code, Bytes{}.fill(11, 1)), VOS_OK);
            EXPECT_EQ(sendAndBeAnswered(sender, &code, message({.retCode = 7})), VOS_OK);
            EXPECT_EQ(code, 7u);
        });
        EXPECT_THAT(outcome.messages(), ElementsAre(sender.name + ":read need read 36 but read only 0.",
                                                    sender.name + ":read need read 36 but read only 11.",
                                                    sender.name + ":read need read 36 but read only 32."));
    });
}

TEST(Result, ErrnoTellsWhyARequestFailed) {
    eachSender([](const Sender &sender) {
        run([&] {
            freshWorld();
            vosDebugConfig(VOS_DEBUG_ERROR | VOS_DEBUG_TRACE);
            uint32_t code = 0;
            EXPECT_EQ(sender.send(4, &code, 3000), VOS_ERROR); /* there is no directory to bind in */
            EXPECT_EQ(errno, ENOENT);
            EXPECT_EQ(mkdir("/tmp/vos", 0777), 0);
            EXPECT_EQ(sender.send(4, &code, 3000), VOS_ERROR);
            EXPECT_EQ(errno, ENOENT);
            { const Peer gone{sender.path}; }
            EXPECT_EQ(sender.send(4, &code, 3000), VOS_ERROR);
            EXPECT_EQ(errno, ECONNREFUSED);
            const Peer silent{sender.path};
            EXPECT_EQ(sender.send(4, &code, 20), VOS_ERROR);
            EXPECT_EQ(errno, EAGAIN);
        });
    });
}

TEST(Result, WithoutAFreeDescriptorARequestFailsWithOneLine) {
    eachSender([](const Sender &sender) {
        const Outcome outcome = run([&] {
            freshWorld();
            const Peer silent{sender.path};
            const vostest::NoFreeDescriptor none;
            uint32_t code = 0;
            EXPECT_EQ(sender.send(4, &code, 3000), VOS_ERROR);
            EXPECT_EQ(errno, EMFILE);
        });
        EXPECT_THAT(outcome.messages(), ElementsAre(sender.name + ":vosMsgLocalSocket failed."));
    });
}

TEST(Result, ARefusedRequestOrAnswerHasNoEndLine) {
    const Outcome outcome = run([] {
        freshWorld();
        const VOS_MSG_PEER peer{};
        vosDebugConfig(VOS_DEBUG_ERROR | VOS_DEBUG_TRACE);
        EXPECT_EQ(vosMsgSend(nullptr, text, 4, 0, nullptr, 3000, 0), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgResp(0, 0, text, 64569, &peer), VOS_ERR_TOO_LONG);
        vosDebugConfig(0);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgSend:start.", "vosMsgSend:parameter error.", "vosMsgResp:start.",
                                                "vosMsgResp:ulMsgSize too long."));
}

TEST(Result, ANameOf98CharactersIsReached) {
    run([] {
        const std::string name(98, 'n');
        Peer receiver{"/tmp/vos/" + name};
        vosDebugConfig(VOS_DEBUG_ERROR);
        EXPECT_EQ(vosMsgSend(name.c_str(), text, 4, 1, nullptr, 3000, 0), VOS_OK);
        EXPECT_EQ(receiver.receive().textAt(32, 4), "ping");
    });
}
