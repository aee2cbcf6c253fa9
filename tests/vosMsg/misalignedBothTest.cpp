/* SPDX-License-Identifier: MIT */
#include <gmock/gmock.h>

#include <csignal>
#include <cstring>

#include "misaligned.h"
#include "support/child.h"
#include "vos.h"

using namespace vostest;

MISALIGNED_BUFFER("g_vosMsgBufferRecv");
MISALIGNED_BUFFER("g_vosMsgBufferSend");

TEST(MisalignedBuffers, OfBothTheReceiveBufferIsNamed) {
    const Outcome outcome = run([] {
        strcpy(szVosProcName, "board");
        vosMsgCheck();
    });
    EXPECT_TRUE(outcome.killedBy(SIGABRT));
    EXPECT_THAT(outcome.output, testing::HasSubstr("Assertion failed!0 == ((uintptr_t)g_vosMsgBufferRecv)%"));
    EXPECT_THAT(outcome.output, testing::Not(testing::HasSubstr("g_vosMsgBufferSend")));
}
