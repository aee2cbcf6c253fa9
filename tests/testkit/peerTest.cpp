/* SPDX-License-Identifier: MIT */
/* A test plays the processes that the code under test talks to. */
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <vosTest.hpp>

#include "support/child.h"
#include "vos.h"

using namespace vos::test;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

/* The requests come from forked children, while a thread of the peer may hold a lock of the sanitizer's allocator. A
 * child would wait for that lock for ever when it looks for leaks at its end. */
extern "C" const char *__asan_default_options() { return "allocator_may_return_null=1:detect_leaks=0"; }

namespace {

struct Answer {
    int32_t result = 0;
    uint32_t code = 0;
    std::string text;
    std::string said; /* log lines */
};

/* A request of another process, and what comes back. */
Answer request(const std::string &name, std::string text, uint32_t timeoutMs = 20000, uint32_t flags = 0,
               uint32_t noReturn = VOS_MSG_WAIT_ANSWER) {
    const vostest::Outcome outcome = vostest::run([&] {
        uint32_t code = 0;
        std::string buffer = text;
        const int32_t result = vosMsgSend(name.c_str(), buffer.data(), static_cast<uint32_t>(buffer.size()), noReturn,
                                          &code, timeoutMs, flags);
        printf("\nanswer %d %u %s\n", result, code, buffer.c_str());
    });
    Answer answer;
    std::istringstream words(outcome.output.substr(outcome.output.rfind("\nanswer ") + 8));
    words >> answer.result >> answer.code;
    std::getline(words >> std::ws, answer.text);
    answer.said = outcome.output;
    return answer;
}

void expectWrong(const std::string &text, const std::string &said) {
    try {
        Script::parse(text, "file");
        ADD_FAILURE() << "was read: " << text;
    } catch (const ScriptError &error) {
        EXPECT_THAT(error.what(), HasSubstr(said)) << text;
        EXPECT_THAT(error.what(), testing::StartsWith("file:")) << text;
    }
}

}  // namespace

TEST(Peer, ExpectedRequestsAreAnsweredInTheirOrder) {
    Peer peer("server");
    peer.expect("one").answer(1, "first");
    peer.expectPrefix("tw").answer(static_cast<int32_t>(VOS_ERR_EXIST), "next.");
    peer.expect().echo(7);
    const Answer one = request("server", "one..");
    EXPECT_EQ(one.result, VOS_OK);
    EXPECT_EQ(static_cast<int32_t>(one.code), VOS_ERROR) << "another text than expected";
    EXPECT_EQ(request("server", "one").text, "fir");
    const Answer two = request("server", "two..");
    EXPECT_EQ(static_cast<int32_t>(two.code), VOS_ERR_EXIST);
    EXPECT_EQ(two.text, "next.");
    const Answer three = request("server", "three");
    EXPECT_EQ(three.code, 7u);
    EXPECT_EQ(three.text, "three");
    const Report report = peer.finish();
    EXPECT_THAT(report.problems, ElementsAre("unexpected: \"one..\""));
    EXPECT_THAT(report.requests, SizeIs(4));
    EXPECT_THAT(report.text(), HasSubstr("unexpected, answered with -1"));
    EXPECT_THAT(report.requests[1].from, HasSubstr("/tmp/vos/clientp"));
}

TEST(Peer, WhatDoesNotComeIsTold) {
    Peer peer("server");
    peer.expect("one").times(2);
    peer.expect("never").repeatedly();
    request("server", "one", 50);
    const Report report = peer.finish(50ms);
    EXPECT_FALSE(report.ok());
    EXPECT_THAT(report.problems, ElementsAre("did not come: expectation 1, \"one\", 1 times"));
}

TEST(Peer, AStepThatMayRepeatNeedNotCome) {
    Peer peer("server");
    peer.expect("poll").echo(1).repeatedly();
    peer.expect("end").answer(2);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(request("server", "poll").code, 1u);
    EXPECT_EQ(request("server", "end").code, 2u);
    EXPECT_EQ(static_cast<int32_t>(request("server", "poll").code), VOS_ERROR) << "its place is before the end";
    EXPECT_THAT(peer.finish().problems, SizeIs(1));
}

TEST(Peer, SilenceLetsARequestTimeOutAndADelayDoesNot) {
    Peer peer("server");
    peer.expect("lost").silence();
    peer.expect("slow").after(300ms).answer(5);
    EXPECT_NE(request("server", "lost", 100).result, VOS_OK);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(request("server", "slow").code, 5u);
    EXPECT_GE(std::chrono::steady_clock::now() - before, 300ms);
    EXPECT_TRUE(peer.finish().ok());
}

TEST(Peer, WrongSizesReachTheRequester) {
    Peer peer("server");
    peer.expect("lies").answerAnnouncing(1000, 0, "ab");
    peer.expect("short").raw("abc");
    peer.expect("empty").raw("");
    EXPECT_THAT(request("server", "lies").said, HasSubstr("need read 36 but read only 34"));
    EXPECT_THAT(request("server", "short").said, HasSubstr("need read 37 but read only 3"));
    EXPECT_THAT(request("server", "empty").said, HasSubstr("need read 37 but read only 0"));
    const Report report = peer.finish();
    EXPECT_TRUE(report.ok()) << report.text();
    EXPECT_EQ(report.requests[1].fate, "answered with 3 bytes as they are");
}

TEST(Peer, ADeadProcessLeavesItsPathsAndRefuses) {
    Peer peer("server");
    peer.expect("stop").die();
    EXPECT_NE(request("server", "stop", 100).result, VOS_OK);
    EXPECT_TRUE(peer.finish().ok());
    struct stat state {};
    EXPECT_EQ(lstat("/tmp/vos/server", &state), 0);
    const vostest::Outcome outcome = vostest::run([] {
        char text[] = "again";
        uint32_t code = 0;
        EXPECT_NE(vosMsgSend("server", text, 5, 0, &code, 1000, 0), VOS_OK);
    });
    EXPECT_THAT(outcome.output, HasSubstr("Connection refused"));
    EXPECT_NO_THROW(Peer("server")) << "what a dead process has left is taken over";
}

TEST(Peer, TheLaneAndTheWishForAnAnswerAreSeen) {
    Peer peer("server");
    peer.expect("a").onHigh().answer(1, "x");
    peer.expect("b").onNormal().answer(2, "y");
    EXPECT_EQ(request("server", "a", 5000, VOS_MSG_TO_HIGH).code, 1u);
    EXPECT_EQ(request("server", "b", 5000, 0, VOS_MSG_NO_ANSWER).result, VOS_OK);
    const Report report = peer.finish();
    EXPECT_TRUE(report.ok()) << report.text();
    EXPECT_TRUE(report.requests[0].high);
    EXPECT_FALSE(report.requests[1].answerWanted);
    EXPECT_EQ(report.requests[1].fate, "no answer wanted");
}

TEST(Peer, ControlMessagesAreNoProblem) {
    Peer peer("server");
    peer.expect("x").answer(0);
    vostest::run([] { EXPECT_EQ(vosMsgDebugVos("server", 7), VOS_OK); });
    request("server", "x");
    const Report report = peer.finish();
    EXPECT_TRUE(report.ok()) << report.text();
    EXPECT_THAT(report.requests, SizeIs(2));
}

TEST(Peer, SeveralAreServedAtTheSameTime) {
    Peer one("one");
    Peer two("two");
    one.expect("x").after(100ms).answer(1);
    two.expect("x").answer(2);
    EXPECT_EQ(request("two", "x").code, 2u);
    EXPECT_EQ(request("one", "x").code, 1u);
    EXPECT_TRUE(one.finish().ok());
    EXPECT_TRUE(two.finish().ok());
}

TEST(Peer, TheNameOfARunningProcessIsNotTakenOver) {
    const Peer first("server");
    EXPECT_THROW(Peer("server"), std::runtime_error);
    EXPECT_THROW(Peer(""), std::invalid_argument);
    EXPECT_THROW(Peer("a/"), std::invalid_argument);
    EXPECT_THROW(Peer(std::string(95, 'n')), std::invalid_argument) << "the path of the high socket is too long";
    struct stat state {};
    EXPECT_NE(lstat(("/tmp/vos/" + std::string(95, 'n')).c_str(), &state), 0) << "nothing is left of it";
}

TEST(Peer, ItTakesItsPathsAlong) {
    { const Peer peer("server"); }
    struct stat state {};
    EXPECT_NE(lstat("/tmp/vos/server", &state), 0);
    EXPECT_NE(lstat("/tmp/vos/serverHigh", &state), 0);
}

TEST(Script, ATextIsRead) {
    const Script script = Script::parse(
        "# comment\r\n"
        "\n"
        "expect \"a\\x00\\n\\\"\\\\\" high type 0x9 times 3 # behind it\n"
        "\twait 2s\n"
        "  answer -5 hex 00fF announce 4294967295\n"
        "expect any repeatedly\n"
        "  answer 0x10 size 3\n"
        "expect hex 6162 normal\n"
        "  raw 0a\n"
        "expect prefix \"p\"\n"
        "  die",
        "file");
    ASSERT_THAT(script.steps, SizeIs(4));
    const Step &first = script.steps[0];
    EXPECT_EQ(first.match.payload, std::string("a\0\n\"\\", 5));
    EXPECT_EQ(first.match.lane, Match::Lane::high);
    EXPECT_EQ(first.match.type, 9u);
    EXPECT_EQ(first.times, 3u);
    EXPECT_EQ(first.line, 3u);
    ASSERT_THAT(first.acts, SizeIs(2));
    EXPECT_EQ(first.acts[0].delay, 2s);
    EXPECT_EQ(first.acts[1].code, -5);
    EXPECT_EQ(first.acts[1].payload, std::string("\0\xff", 2));
    EXPECT_EQ(first.acts[1].announced, 4294967295u);
    EXPECT_EQ(script.steps[1].times, 0u);
    EXPECT_EQ(script.steps[1].acts[0].code, 16);
    EXPECT_EQ(script.steps[1].acts[0].payload, "xxx");
    EXPECT_EQ(script.steps[2].match.payload, "ab");
    EXPECT_EQ(script.steps[2].acts[0].payload, "\n");
    EXPECT_EQ(script.steps[3].match.kind, Match::Kind::prefix);
    EXPECT_EQ(script.steps[3].acts[0].kind, Act::Kind::die);
}

TEST(Script, WhatCannotBeReadIsToldWithItsLine) {
    expectWrong("", "expects nothing");
    expectWrong("# only a comment\n", "expects nothing");
    expectWrong("answer 0", "file:1: a script begins with \"expect\"");
    expectWrong("expect any\nansver 0", "file:2: \"ansver\" is not known");
    expectWrong("expect", "behind \"expect\" belongs");
    expectWrong("expect work", "behind \"expect\" belongs");
    expectWrong("expect \"work", "a quote has no end");
    expectWrong("expect \"\\q\"", "a backslash is followed by");
    expectWrong("expect \"\\x0\"", "a backslash is followed by");
    expectWrong("expect \"\\", "a backslash is followed by");
    expectWrong("expect prefix work", "a text is in quotes");
    expectWrong("expect prefix", "here belongs text");
    expectWrong("expect hex 0", "no bytes in hexadecimal");
    expectWrong("expect hex 0g", "no bytes in hexadecimal");
    expectWrong("expect hex", "here belongs bytes");
    expectWrong("expect any times 0", "no number");
    expectWrong("expect any times -1", "no number");
    expectWrong("expect any times 4294967296", "no number");
    expectWrong("expect any type", "here belongs type");
    expectWrong("expect any later", "\"later\" does not belong here");
    expectWrong("expect any\nanswer", "here belongs code");
    expectWrong("expect any\nanswer x", "no code");
    expectWrong("expect any\nanswer \"0\"", "no code");
    expectWrong("expect any\nanswer 2147483648", "no code");
    expectWrong("expect any\nanswer 0 yes", "\"yes\" does not belong here");
    expectWrong("expect any\nanswer 0 size 1048577", "no size");
    expectWrong("expect any\nanswer 0 \"a\" announce -1", "no length");
    expectWrong("expect any\nwait", "here belongs a time");
    expectWrong("expect any\nwait 5", "no time");
    expectWrong("expect any\nwait ms", "no time");
    expectWrong("expect any\nwait -5ms", "no time");
    expectWrong("expect any\ndie now", "\"now\" does not belong here");
}
