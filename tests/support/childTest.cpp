/* SPDX-License-Identifier: MIT */
/* The scenarios themselves. */
#include "support/child.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "vos.h"

using namespace vostest;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(Child, OutputAndExitStatusAreCollected) {
    const Outcome outcome = run([] {
        printf("text");
        exit(7);
    });
    EXPECT_EQ(outcome.output, "text");
    EXPECT_TRUE(outcome.exited(7));
    EXPECT_FALSE(outcome.exited(0));
}

TEST(Child, ASignalIsSeen) {
    const Outcome outcome = run([] { raise(SIGKILL); });
    EXPECT_TRUE(outcome.killedBy(SIGKILL));
    EXPECT_FALSE(outcome.killedBy(SIGTERM));
}

TEST(Child, AFailedExpectationInTheChildFailsTheTest) {
    Process failing = start([] { EXPECT_EQ(1, 2) << "(wanted: this failure shows that children are heard)"; });
    EXPECT_NONFATAL_FAILURE(failing.finish(), "an expectation failed in the child");
}

TEST(Child, ADeathThatNobodyAsksAboutFailsTheTest) {
    EXPECT_NONFATAL_FAILURE(run([] { raise(SIGKILL); }), "a child was killed by signal 9");
    EXPECT_NONFATAL_FAILURE(run([] { _exit(3); }), "a child exited with status 3");
}

TEST(Child, EachHasLibraryStateOfItsOwn) {
    run([] { vosDebugConfig(0x40); });
    run([] { EXPECT_EQ(g_ulVosDebugFlags, 2u); });
}

TEST(Child, OneThatDoesNotEndIsKilledAtTheDeadline) {
    setenv("VOS_TEST_PATIENCE", "0", 1);
    EXPECT_NONFATAL_FAILURE(run([] { pause(); }), "did not end within the deadline");
    unsetenv("VOS_TEST_PATIENCE");
}

TEST(Child, ReadyAndOutputAreAwaited) {
    Process process = start([] {
        vosPrintf("first ");
        ready();
        vosPrintf("second");
        pause();
    });
    process.awaitReady();
    EXPECT_EQ(process.awaitOutput("second"), "first second");
    process.send(SIGKILL);
    EXPECT_TRUE(process.finish().killedBy(SIGKILL));
}

TEST(Child, OutputThatNeverComesFailsTheTest) {
    EXPECT_NONFATAL_FAILURE(start([] {}).awaitOutput("never"), "did not write \"never\"");
}

TEST(Child, ALivingOneIsKilledWithItsHandle) {
    pid_t pid = 0;
    {
        Process process = start([] {
            ready();
            pause();
        });
        process.awaitReady();
        pid = process.pid();
    }
    EXPECT_EQ(kill(pid, 0), -1);
}

TEST(Log, IsSplitAtEveryCrLfAndTheHeaderIsTakenOff) {
    const auto lines = splitLog("before\r\nname(12) f:start.\r\nname(12) two\nlines\r\nplain text");
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0].message, "before");
    EXPECT_EQ(lines[1].process, "name");
    EXPECT_EQ(lines[1].pid, 12);
    EXPECT_EQ(lines[1].message, "f:start.");
    EXPECT_EQ(lines[2].message, "two\nlines");
    EXPECT_EQ(lines[3].process, "");
    EXPECT_EQ(lines[3].message, "plain text");
}

TEST(Log, ALineOfAnotherProcessFailsTheTest) {
    EXPECT_NONFATAL_FAILURE(logMessages("\r\nname(12) f:start.", 13), "header of: f:start.");
    EXPECT_THAT(logMessages("\r\nname(12) f:start.", 12), ElementsAre("f:start."));
}

TEST(Log, ErrnoIsShownAsNumberAndText) { EXPECT_EQ(errnoText(5), "5(Input/output error)"); }
