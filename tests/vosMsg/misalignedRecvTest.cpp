/* SPDX-License-Identifier: MIT */
#include <gmock/gmock.h>

#include <csignal>
#include <cstring>

#include "misaligned.h"
#include "support/child.h"
#include "vos.h"

using namespace vostest;
using testing::MatchesRegex;

MISALIGNED_BUFFER("g_vosMsgBufferRecv");

namespace {

const char *const kAssertionLine =
    "\r\nboard\\([0-9]+\\):Assertion failed!0 == \\(\\(uintptr_t\\)g_vosMsgBufferRecv\\)%ZEB_LONGBYTES, "
    "vos/linux/vosMsg, vosMsgCheck, line=[0-9]+\\.\r\n";

}  // namespace

TEST(MisalignedRecvBuffer, PrintsTheAssertionLineAndAborts) {
    const Outcome outcome = run([] {
        strcpy(szVosProcName, "board");
        vosMsgCheck();
    });
    EXPECT_TRUE(outcome.killedBy(SIGABRT));
    EXPECT_THAT(outcome.output, MatchesRegex(kAssertionLine));
}

TEST(MisalignedRecvBuffer, TheLineIsPrintedWhateverTheDebugFlagsHold) {
    const Outcome outcome = run([] {
        strcpy(szVosProcName, "board");
        vosDebugConfig(0);
        vosMsgCheck();
    });
    EXPECT_TRUE(outcome.killedBy(SIGABRT));
    EXPECT_THAT(outcome.output, MatchesRegex(kAssertionLine));
}

TEST(MisalignedRecvBuffer, ProcessInitChecksItBeforeItLooksAtTheName) {
    const Outcome outcome = run([] {
        strcpy(szVosProcName, "board");
        vosProcessInit(nullptr);
    });
    EXPECT_TRUE(outcome.killedBy(SIGABRT));
    EXPECT_THAT(outcome.output, MatchesRegex(kAssertionLine));
}
