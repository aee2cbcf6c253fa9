/* SPDX-License-Identifier: MIT */
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include "support/faults.h"
#include "vos.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/* "\r\nNAME(PID) " as the child `outcome` writes it. */
std::string header(const std::string &name, const Outcome &outcome) {
    return "\r\n" + name + "(" + std::to_string(outcome.pid) + ") ";
}

void asProcess(const char *name) { EXPECT_EQ(vosProcessInit(name), VOS_OK); }

}  // namespace

TEST(DebugFlags, OnlyErrorsArePrintedAtLoad) {
    const Outcome outcome = run([] {
        EXPECT_EQ(g_ulVosDebugFlags, 2u);
        EXPECT_EQ(vosDebugPrintf(VOS_DEBUG_TRACE, "%s:start.", "f"), 0);
        EXPECT_GT(vosDebugPrintf(VOS_DEBUG_ERROR, "%s:failed.", "f"), 0);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("f:failed."));
}

TEST(DebugFlags, ConfigStoresTheWholeWord) {
    run([] {
        EXPECT_EQ(vosDebugConfig(0xA0000001u), VOS_OK);
        EXPECT_EQ(g_ulVosDebugFlags, 0xA0000001u);
        EXPECT_EQ(vosDebugConfig(0), VOS_OK);
        EXPECT_EQ(g_ulVosDebugFlags, 0u);
    });
}

TEST(DebugFlags, ZeroPrintsNothingAtAnyLevel) {
    const Outcome outcome = run([] {
        vosDebugConfig(0);
        for (uint32_t bit = 0; bit < 32; ++bit) EXPECT_EQ(vosDebugPrintf(1u << bit, "f:line."), 0);
    });
    EXPECT_EQ(outcome.output, "");
}

TEST(DebugFlags, LevelSixIsPrintedWithFlagsTwoBecauseAnyCommonBitSuffices) {
    const Outcome outcome = run([] {
        vosDebugConfig(2);
        vosDebugPrintf(6, "f:line.");
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("f:line."));
}

TEST(DebugFlags, Word0x25PrintsTheEventLevelAndWord1AlonePrintsNoLevel) {
    const Outcome outcome = run([] {
        vosDebugConfig(0x25);
        vosDebugPrintf(VOS_DEBUG_EVENT, "f:event.");
        vosDebugConfig(VOS_DEBUG_NO_TIMEOUTS);
        for (const uint32_t level : {VOS_DEBUG_ERROR, VOS_DEBUG_TRACE, VOS_DEBUG_EVENT})
            vosDebugPrintf(level, "f:hidden.");
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("f:event."));
}

TEST(DebugPrintf, AFilteredCallFormatsNothingAndWritesNothing) {
    run([] {
        for (const char *const call : {"vsnprintf", "vprintf", "fflush", "open"}) {
            Faults::arm({.call = call});
            EXPECT_EQ(vosDebugPrintf(VOS_DEBUG_TRACE, "%s:start.", "f"), 0);
            EXPECT_FALSE(Faults::disarm()) << call;
        }
    });
}

TEST(DebugPrintf, ALineBeginsWithCrLfNameAndIdAndHasNoLineEnd) {
    const Outcome outcome = run([] {
        asProcess("oltd");
        vosDebugPrintf(VOS_DEBUG_ERROR, "%s:open file %s failed errno:%d(%s).", "f", "/flash/x", 2,
                       "No such file or directory");
        vosDebugPrintf(VOS_DEBUG_ERROR, "second");
    });
    EXPECT_EQ(outcome.output, header("oltd", outcome) +
                                  "f:open file /flash/x failed errno:2(No such file or directory)." +
                                  header("oltd", outcome) + "second");
}

TEST(DebugPrintf, TheResultIsTheNumberOfCharactersWritten) {
    const Outcome outcome = run([] {
        asProcess("oltd");
        const std::string line = "\r\noltd(" + std::to_string(getpid()) + ") f:line.";
        EXPECT_EQ(vosDebugPrintf(VOS_DEBUG_ERROR, "f:line."), static_cast<int32_t>(line.size()));
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("f:line."));
}

TEST(DebugPrintf, AMessageOf300CharactersIsPrintedWithItsFirst255) {
    const Outcome outcome = run([] {
        const std::string message = std::string(255, 'a') + std::string(45, 'b');
        vosDebugPrintf(VOS_DEBUG_ERROR, "%s", message.c_str());
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(std::string(255, 'a')));
}

TEST(DebugPrintf, APairOfPercentSignsAtTheCutIsRemovedWhole) {
    const Outcome outcome = run([] {
        asProcess("app");
        const int header = vosDebugPrintf(VOS_DEBUG_ERROR, "%s", "");
        for (const int before : {252, 253, 254, 255}) {
            const std::string text = std::string(static_cast<std::size_t>(before), 'x') + "%%%%%%";
            EXPECT_EQ(vosDebugPrintf(VOS_DEBUG_ERROR, "%s", text.c_str()),
                      header + std::min(before + (255 - before) / 2, 255));
        }
    });
    const auto x = [](std::size_t count) { return std::string(count, 'x'); };
    EXPECT_THAT(outcome.messages(), ElementsAre("", x(252) + "%", x(253) + "%", x(254), x(255)));
}

TEST(DebugPrintf, TheFinishedLineIsFormattedOnceMore) {
    const Outcome outcome = run([] { vosDebugPrintf(VOS_DEBUG_ERROR, "%s", "100%% done"); });
    EXPECT_THAT(outcome.messages(), ElementsAre("100% done"));
}

TEST(DebugPrintf, APercentSignInTheProcessNameIsShownAsItIs) {
    const Outcome outcome = run([] {
        asProcess("%s%n%x-is-my-very-odd-name-%%%%%");
        vosDebugPrintf(VOS_DEBUG_ERROR, "f:line.");
    });
    EXPECT_EQ(outcome.output, header("%s%n%x-is-my-very-odd-name-%%%%%", outcome) + "f:line.");
}

TEST(DebugPrintf, ErrnoSurvivesTheCall) {
    run([] {
        Faults::arm({.call = "fflush", .error = EBADF});
        errno = ENOENT;
        vosDebugPrintf(VOS_DEBUG_ERROR, "f:line.");
        EXPECT_EQ(errno, ENOENT);
        EXPECT_TRUE(Faults::disarm());
    });
}

TEST(DebugPrintf, AnOutputErrorIsReturned) {
    const Attempt attempt = failCall(
        {.call = "vprintf"}, [] {}, [] { return vosDebugPrintf(VOS_DEBUG_ERROR, "f:line."); });
    EXPECT_EQ(attempt.result, -1);
    EXPECT_EQ(attempt.outcome.output, "");
}

TEST(DebugPrintf, WithNoDescriptorLeftTheNameIsEmptyAndTheLineIsPrinted) {
    const Outcome outcome = run([] {
        const vostest::NoFreeDescriptor none;
        vosDebugPrintf(VOS_DEBUG_ERROR, "f:line.");
    });
    EXPECT_EQ(outcome.output, header("", outcome) + "f:line.");
}

TEST(DebugPrintf, AMessageThatCannotBeFormattedLeavesTheHeader) {
    const Attempt attempt = failCall(
        {.call = "vsnprintf"}, [] { asProcess("oltd"); }, [] { return vosDebugPrintf(VOS_DEBUG_ERROR, "f:line."); });
    EXPECT_EQ(attempt.outcome.output, header("oltd", attempt.outcome));
    EXPECT_EQ(attempt.result, static_cast<long>(attempt.outcome.output.size()));
}

TEST(Printf, WritesWithoutAHeaderWhateverTheFlagsHold) {
    const Outcome outcome = run([] {
        vosDebugConfig(0);
        EXPECT_EQ(vosPrintf("\r\n%s:%d", "text", 7), 8);
    });
    EXPECT_EQ(outcome.output, "\r\ntext:7");
}

TEST(Printf, IsFlushedAtOnce) {
    const Outcome outcome = run([] {
        vosPrintf("seen");
        _exit(0); /* buffered output would be lost */
    });
    EXPECT_EQ(outcome.output, "seen");
}

TEST(Printf, TheResultIsTheNumberOfCharactersEvenIfTheyCannotBeWritten) {
    run([] {
        ASSERT_EQ(dup2(open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO), STDOUT_FILENO);
        EXPECT_EQ(vosPrintf("text"), 4);
        EXPECT_GT(vosDebugPrintf(VOS_DEBUG_ERROR, "f:line."), 7);
    });
}

TEST(Printf, AnOutputErrorIsReturnedAndAFailedFlushIsNot) {
    EXPECT_EQ(failCall(
                  {.call = "vprintf"}, [] {}, [] { return vosPrintf("text"); })
                  .result,
              -1);
    const Attempt unflushed = failCall(
        {.call = "fflush"}, [] {}, [] { return vosPrintf("text"); });
    EXPECT_EQ(unflushed.result, 4);
    EXPECT_EQ(unflushed.outcome.output, "text");
}
