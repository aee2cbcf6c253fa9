/* SPDX-License-Identifier: MIT */
/* A capture is the script of a peer in a test's code. */
#include <gmock/gmock.h>
#include <vosTest.hpp>

#include <fstream>

#include "support/child.h"
#include "vos.h"

using namespace vos::test;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::SizeIs;

/* As in the test of the peers: a forked child would wait for ever when it looks for leaks. */
extern "C" const char *__asan_default_options() { return "allocator_may_return_null=1:detect_leaks=0"; }

namespace {

constexpr const char *kRequester = "/tmp/vos/clientp7t7v1";
constexpr uint32_t kProcess = 100;

template <class Value>
std::string bytesOf(const Value &value) {
    return {reinterpret_cast<const char *>(&value), sizeof value};
}

std::string block(uint32_t type, std::string body) {
    body.resize((body.size() + 3) / 4 * 4);
    const auto length = static_cast<uint32_t>(body.size() + 12);
    return bytesOf(type) + bytesOf(length) + body + bytesOf(length);
}

std::string message(const std::string &payload, int32_t code = 0, uint32_t argument = 254) {
    VOS_MSG_HEAD head{};
    head.ulType = VOS_MSG_TYPE_SELF;
    head.ulRetCode = static_cast<uint32_t>(code);
    head.ulValue1 = argument;
    head.ulBufLen = static_cast<uint32_t>(payload.size());
    return bytesOf(head) + payload;
}

/* A copy that the process "server" has made at a moment. */
std::string packet(uint8_t what, uint8_t stage, std::chrono::milliseconds moment, const std::string &message) {
    VOS_MSG_TAP_HEAD head{};
    head.ulType = VOS_MSG_TAP_COPY;
    head.usVersion = 1;
    head.usHeadLen = sizeof head;
    head.ucWhat = what;
    head.ucStage = stage;
    head.ulProcessId = kProcess;
    head.iResult = static_cast<int32_t>(message.size());
    head.ullMonotonicNs = static_cast<uint64_t>(std::chrono::nanoseconds(moment).count());
    head.ulWholeLen = head.ulCopiedLen = static_cast<uint32_t>(message.size());
    head.usOwnLen = static_cast<uint16_t>(strlen(strcpy(head.acOwn, "/tmp/vos/server")));
    head.usPeerLen = static_cast<uint16_t>(strlen(strcpy(head.acPeer, kRequester)));
    const std::string datagram = bytesOf(head) + message;
    const uint32_t numbers[] = {0, 0, 0, static_cast<uint32_t>(datagram.size()),
                                static_cast<uint32_t>(datagram.size())};
    return block(pcapng::kPacket, bytesOf(numbers) + datagram);
}

std::string capture(const std::string &packets) {
    const std::string section =
        bytesOf(pcapng::kByteOrder) + bytesOf(uint16_t{1}) + bytesOf(uint16_t{0}) + bytesOf(~uint64_t{0});
    const std::string interface = bytesOf(pcapng::kLinkType) + bytesOf(uint16_t{0}) + bytesOf(uint32_t{0});
    return block(pcapng::kSection, section) + block(pcapng::kInterface, interface) + packets;
}

std::string exchange() {
    return packet(VOS_MSG_TAP_RECEIVED, VOS_MSG_TAP_REQUEST, 1000ms, message("work")) +
           packet(VOS_MSG_TAP_SENT, VOS_MSG_TAP_ANSWER, 1040ms, message("done", 3, 255));
}

std::string fileOf(const std::string &bytes) {
    std::string path = "/tmp/captureTest.XXXXXX";
    close(mkstemp(path.data()));
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
}

}  // namespace

TEST(Capture, ItsRequestsAndAnswersAreTheScript) {
    const Script script = scriptOfCapture(capture(exchange()), "file", "server");
    ASSERT_THAT(script.steps, SizeIs(1));
    const Step &step = script.steps[0];
    EXPECT_EQ(step.match.kind, Match::Kind::text);
    EXPECT_EQ(step.match.lane, Match::Lane::normal);
    EXPECT_EQ(step.match.type, uint32_t{VOS_MSG_TYPE_SELF});
    EXPECT_EQ(step.match.payload, "work");
    ASSERT_THAT(step.acts, SizeIs(1));
    EXPECT_EQ(step.acts[0].kind, Act::Kind::answer);
    EXPECT_EQ(step.acts[0].code, 3);
    EXPECT_EQ(step.acts[0].payload, "done");
}

TEST(Capture, ItsDelaysAreKeptWhenThatIsAskedFor) {
    const Script script = scriptOfCapture(capture(exchange()), "file", "any/server", Delays::kept);
    ASSERT_THAT(script.steps[0].acts, SizeIs(2));
    EXPECT_EQ(script.steps[0].acts[0].kind, Act::Kind::wait);
    EXPECT_EQ(script.steps[0].acts[0].delay, 40ms);
}

TEST(Capture, NoDelayIsLongerThanADay) {
    const std::string packets =
        packet(VOS_MSG_TAP_RECEIVED, VOS_MSG_TAP_REQUEST, 0ms, message("work")) +
        packet(VOS_MSG_TAP_SENT, VOS_MSG_TAP_ANSWER, std::chrono::hours(1000), message("done", 0, 255));
    const Script script = scriptOfCapture(capture(packets), "file", "server", Delays::kept);
    EXPECT_EQ(script.steps[0].acts[0].delay, std::chrono::hours(24));
}

TEST(Capture, AnAnswerWithOtherWordsIsSentAsItWas) {
    const std::string packets = packet(VOS_MSG_TAP_RECEIVED, VOS_MSG_TAP_REQUEST, 0ms, message("work")) +
                                packet(VOS_MSG_TAP_SENT, VOS_MSG_TAP_ANSWER, 1ms, message("done", 0, 77));
    const Script script = scriptOfCapture(capture(packets), "file", "server");
    EXPECT_EQ(script.steps[0].acts[0].kind, Act::Kind::raw);
    EXPECT_EQ(script.steps[0].acts[0].payload, message("done", 0, 77));
}

TEST(Capture, APeerPlaysIt) {
    const std::string path = fileOf(capture(exchange()));
    Peer peer("server", scriptOfFile(path, "server"));
    const vostest::Outcome outcome = vostest::run([] {
        char text[] = "work";
        uint32_t code = 0;
        EXPECT_EQ(vosMsgSend("server", text, 4, VOS_MSG_WAIT_ANSWER, &code, 20000, 0), VOS_OK);
        printf("\n%s %u\n", text, code);
    });
    EXPECT_THAT(outcome.output, HasSubstr("done 3"));
    const Report report = peer.finish();
    EXPECT_TRUE(report.ok()) << report.text();
    unlink(path.c_str());
}

TEST(Capture, AFileMayAlsoBeAScriptOrCannotBeRead) {
    const std::string path = fileOf("expect \"a\"\n answer 1\n");
    EXPECT_THAT(scriptOfFile(path, "server").steps, SizeIs(1));
    unlink(path.c_str());
    EXPECT_THROW(scriptOfFile(path, "server"), std::system_error);
    EXPECT_THROW(scriptOfFile("/tmp", "server"), std::system_error);
}

TEST(Capture, NoneOfItsFirstBytesAloneIsRead) {
    const std::string whole = capture(exchange());
    for (std::size_t length = 4; length < whole.size(); ++length) {
        try {
            scriptOfCapture(whole.substr(0, length), "file", "server");
            /* Only the end of a block may be taken for the end of the file. */
            EXPECT_EQ(length, whole.size() - packet(VOS_MSG_TAP_SENT, VOS_MSG_TAP_ANSWER, 0ms, message("done")).size());
        } catch (const CaptureError &error) {
            EXPECT_THAT(error.what(), testing::StartsWith("file "));
            EXPECT_FALSE(error.advice().empty());
        }
    }
}

TEST(Capture, NoSpoiledByteReachesMoreThanAMessage) {
    const std::string whole = capture(exchange());
    for (std::size_t at = 0; at < whole.size(); ++at)
        for (const char spoiled : {'\0', '\x7f', '\xff'}) {
            std::string bytes = whole;
            bytes[at] = spoiled;
            try {
                const Script script = scriptOfCapture(bytes, "file", "server", Delays::kept);
                EXPECT_THAT(script.steps, SizeIs(1)) << at;
            } catch (const CaptureError &error) {
                EXPECT_THAT(error.what(), testing::StartsWith("file ")) << at;
            }
        }
}
