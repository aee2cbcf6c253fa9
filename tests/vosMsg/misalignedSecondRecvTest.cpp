/* SPDX-License-Identifier: MIT */
#include "misaligned.h"
#include "peer.h"

using namespace vostest;

MISALIGNED_BUFFER("g_vosMsgBufferRecv_thread");

TEST(MisalignedSecondRecvBuffer, PrintsTheAssertionLineWithItsOwnNumberAndAborts) {
    const Outcome outcome = run([] {
        strcpy(szVosProcName, "board");
        vosDebugConfig(0);
        vosMsgCheck2();
    });
    EXPECT_TRUE(outcome.killedBy(SIGABRT));
    EXPECT_EQ(outcome.output, "\r\nboard(" + std::to_string(outcome.pid) +
                                  "):Assertion failed!0 == ((uintptr_t)g_vosMsgBufferRecv_thread)%ZEB_LONGBYTES, "
                                  "vos/linux/vosMsg, vosMsgCheck2, line=3695.\r\n");
}
