/* SPDX-License-Identifier: MIT */
/* An application's own message buffers, aligned for a long and no better. */
#include "misaligned.h"
#include "peer.h"

using namespace vostest;

OWN_BUFFER("g_vosMsgBufferRecv", "8");
OWN_BUFFER("g_vosMsgBufferSend", "8");
OWN_BUFFER("g_vosMsgBufferRecv_thread", "8");
OWN_BUFFER("g_vosMsgBufferSend_thread", "8");
OWN_BUFFER("g_vosMsgBufferResp_thread", "8");

namespace {

int32_t describe(char *, uint32_t, uint32_t *out1, uint32_t *, uint32_t *, uint32_t *, uint32_t *, uint32_t *,
                 uint32_t *, uint32_t *count, uint32_t *, uint32_t *, uint32_t *) {
    *out1 = 101;
    *count = 0;
    return 0;
}

int32_t object(uint32_t, char *, uint32_t *, int32_t *, void *value, uint32_t *length, uint16_t *) {
    *static_cast<uint8_t *>(value) = 7;
    *length = 1;
    return 0;
}

}  // namespace

TEST(OwnBuffers, ThatAreAlignedForALongPassTheChecks) {
    for (const uint8_t *const buffer : {g_vosMsgBufferRecv, g_vosMsgBufferSend, g_vosMsgBufferRecv_thread,
                                        g_vosMsgBufferSend_thread, g_vosMsgBufferResp_thread}) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(buffer) % 16, 8u);
    }
    const Outcome outcome = run([] {
        EXPECT_EQ(vosMsgCheck(), VOS_OK);
        EXPECT_EQ(vosMsgCheck2(), VOS_OK);
    });
    EXPECT_EQ(outcome.output, "");
}

TEST(OwnBuffers, OfTheMainChannelCarryRequestsObjectsAndDescriptions) {
    Process server = start([] {
        openChannel("A");
        vosMsgRegisterCcd(object);
        vosMsgRegisterCcdObjInfoGet(describe);
        ready();
        Received request = receive(100, 20000);
        EXPECT_EQ(vosMsgResp(0, 5, request.bytes.data(), 4, &request.peer), VOS_OK);
    });
    server.awaitReady();
    run([] {
        uint32_t code = 1, out[11] = {}, table[32] = {};
        EXPECT_EQ(vosMsgCcdObjInfoGetSend(&code, "A", "object", 0, &out[1], &out[2], &out[3], &out[4], &out[5], &out[6],
                                          table, &out[7], &out[8], &out[9], &out[10]),
                  VOS_OK);
        EXPECT_EQ(code, 0u);
        EXPECT_EQ(out[1], 101u);
        Peer peer{"/tmp/vos/peer"};
        EXPECT_TRUE(
            peer.send("/tmp/vos/A", message({.type = VOS_MSG_TYPE_CCD}).word(8).text("object").fill(2).word(0)));
        EXPECT_GE(peer.receive().size(), 32u);
        char text[] = "ping";
        EXPECT_EQ(vosMsgSend("A", text, 4, 0, &code, 3000, 0), VOS_OK);
        EXPECT_EQ(code, 5u);
    });
    server.finish();
}

TEST(OwnBuffers, OfTheSecondChannelCarryRequestsAndAnswers) {
    Process server = start([] {
        int reserved = 0;
        openChannel("A");
        EXPECT_EQ(vosMsgInit2("B", 1, &reserved), VOS_OK);
        ready();
        char text[100];
        VOS_MSG_PEER peer;
        EXPECT_GE(vosMsgRecv2(0, text, sizeof text, 20000, &peer), 0);
        EXPECT_EQ(vosMsgResp2(0, 6, text, 4, &peer), VOS_OK);
    });
    server.awaitReady();
    run([] {
        uint32_t code = 1;
        char text[] = "ping";
        EXPECT_EQ(vosMsgSend2("B", text, 4, 0, &code, 3000, 0), VOS_OK);
        EXPECT_EQ(code, 6u);
        EXPECT_STREQ(text, "ping");
    });
    server.finish();
}
