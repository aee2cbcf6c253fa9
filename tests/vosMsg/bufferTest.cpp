/* SPDX-License-Identifier: MIT */
#include <gmock/gmock.h>

#include "support/child.h"
#include "vos.h"

using namespace vostest;

TEST(MessageBuffers, HaveTheirSizeAndAlignmentAndTheCheckPasses) {
    const Outcome outcome = run([] {
        EXPECT_EQ(sizeof g_vosMsgBufferRecv, 64600u);
        EXPECT_EQ(sizeof g_vosMsgBufferSend, 64600u);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(g_vosMsgBufferRecv) % 8, 0u);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(g_vosMsgBufferSend) % 8, 0u);
        vosDebugConfig(0xFFFFFFFFu);
        EXPECT_EQ(vosMsgCheck(), VOS_OK);
    });
    EXPECT_EQ(outcome.output, "");
}

#ifdef __x86_64__
TEST(ExportedArrays, AreAlignedAsProgramsMayExpectOfEveryArrayOf16BytesAndMore) {
    for (const void *const array :
         {static_cast<const void *>(g_vosMsgBufferRecv), static_cast<const void *>(g_vosMsgBufferSend),
          static_cast<const void *>(g_vosMsgBufferRecv_thread), static_cast<const void *>(g_vosMsgBufferSend_thread),
          static_cast<const void *>(g_vosMsgBufferResp_thread), static_cast<const void *>(flashConfig),
          static_cast<const void *>(flashData), static_cast<const void *>(vosCrctable),
          static_cast<const void *>(szVosProcName)}) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(array) % 16, 0u);
    }
}
#endif

TEST(MessageTypes, HaveTheirCodes) {
    EXPECT_EQ(VOS_MSG_TYPE_BLDRUN, 0);
    EXPECT_EQ(VOS_MSG_TYPE_PACKET, 1);
    EXPECT_EQ(VOS_MSG_TYPE_LINK, 2);
    EXPECT_EQ(VOS_MSG_TYPE_CCD, 3);
    EXPECT_EQ(VOS_MSG_TYPE_CCD_OBJ_INFO_GET, 4);
    EXPECT_EQ(VOS_MSG_VOS_DEBUG, 5);
    EXPECT_EQ(VOS_MSG_SMD_DEBUG, 6);
    EXPECT_EQ(VOS_MSG_STDOUT_REDIRECT, 7);
    EXPECT_EQ(VOS_MSG_TYPE_SELF, 8);
    EXPECT_EQ(VOS_MSG_TYPE_MAC, 9);
}
