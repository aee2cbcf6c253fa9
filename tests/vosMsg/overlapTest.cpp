/* SPDX-License-Identifier: MIT */
/* Payloads and names that are inside the exported buffers. */
#include <thread>

#include "peer.h"

using namespace vostest;

namespace {

constexpr uint32_t kSize = 64;
constexpr uint32_t kOffsets[] = {0, 1, 16, 31, 32, 33, 40, 96};

std::string pattern() {
    std::string text;
    for (uint32_t i = 0; i < kSize; ++i) text.push_back(static_cast<char>('0' + i));
    return text;
}

char *put(uint8_t *buffer, uint32_t offset, const std::string &text) {
    auto *const at = reinterpret_cast<char *>(buffer + offset);
    text.copy(at, text.size());
    at[text.size()] = '\0';
    return at;
}

/* The payload of a request that is sent from an offset of a buffer. */
using Send = std::function<int32_t(void *payload)>;
void expectPayloadWhole(const char *path, uint8_t *buffer, const Send &send) {
    Peer receiver{path};
    for (const uint32_t offset : kOffsets) {
        EXPECT_EQ(send(put(buffer, offset, pattern())), VOS_OK) << offset;
        EXPECT_EQ(receiver.receive().textAt(32, kSize), pattern()) << offset;
    }
}

}  // namespace

TEST(Overlap, ARequestsPayloadMayLieAnywhereInTheExportedBuffers) {
    run([] {
        for (uint8_t *const buffer : {g_vosMsgBufferSend_thread, g_vosMsgBufferRecv, g_vosMsgBufferSend}) {
            expectPayloadWhole("/tmp/vos/B", buffer,
                               [](void *at) { return vosMsgSend("B", at, kSize, 1, nullptr, 3000, 0); });
            expectPayloadWhole("/tmp/vos/B", buffer,
                               [](void *at) { return vosMsgSend2("B", at, kSize, 1, nullptr, 3000, 0); });
            expectPayloadWhole("/tmp/vos/B1", buffer,
                               [](void *at) { return vosMsgThreadSend("B", 1, at, kSize, 1, nullptr, 3000, 0); });
        }
    });
}

TEST(Overlap, AnAnswersPayloadMayLieAnywhereInTheExportedBuffers) {
    run([] {
        openChannel("A");
        Peer client{"/tmp/vos/client"};
        EXPECT_TRUE(client.send("/tmp/vos/A", application("ping")));
        const Received request = receive();
        for (uint8_t *const buffer : {g_vosMsgBufferResp_thread, g_vosMsgBufferRecv})
            for (const auto respond : {vosMsgResp, vosMsgResp2})
                for (const uint32_t offset : kOffsets) {
                    EXPECT_EQ(respond(0, 0, put(buffer, offset, pattern()), kSize, &request.peer), VOS_OK);
                    EXPECT_EQ(client.receive().textAt(32, kSize), pattern()) << offset;
                }
    });
}

TEST(Overlap, AnAnswerIsReceivedWholeAnywhereInTheBufferOfTheSecondChannel) {
    run([] {
        Peer responder{"/tmp/vos/B"};
        for (const uint32_t offset : kOffsets) {
            std::thread other([&] {
                responder.receive();
                EXPECT_TRUE(responder.send(responder.sender, message({.retCode = 5, .length = kSize}, pattern())));
            });
            char *const at = put(g_vosMsgBufferSend_thread, offset, std::string(kSize, 'q'));
            uint32_t code = 0;
            EXPECT_EQ(vosMsgSend2("B", at, kSize, 0, &code, 20000, 0), VOS_OK);
            EXPECT_EQ(code, 5u);
            EXPECT_EQ(std::string(at, kSize), pattern()) << offset;
            other.join();
        }
    });
}

TEST(Overlap, TheNamesOfADescriptionRequestMayLieInTheSendBuffer) {
    run([] {
        Peer responder{"/tmp/vos/B"};
        vosDebugConfig(0);
        for (const uint32_t offset : kOffsets) {
            std::thread other([&] {
                EXPECT_EQ(responder.receive().textAt(32, kSize), pattern()) << offset;
                EXPECT_TRUE(responder.send(responder.sender, message({.retCode = 1})));
            });
            const char *const object = put(g_vosMsgBufferSend, offset, pattern());
            const char *const process = put(g_vosMsgBufferSend, offset + 200, "B");
            uint32_t out[12];
            uint32_t table[32];
            EXPECT_EQ(vosMsgCcdObjInfoGetSend(&out[0], process, object, 0, &out[1], &out[2], &out[3], &out[4], &out[5],
                                              &out[6], table, &out[7], &out[8], &out[9], &out[10]),
                      VOS_OK);
            EXPECT_EQ(out[0], 1u);
            other.join();
        }
        const char *const process = put(g_vosMsgBufferSend, 0, "B"); /* where the header is written */
        std::thread other([&] {
            responder.receive();
            EXPECT_TRUE(responder.send(responder.sender, message({.retCode = 1})));
        });
        uint32_t out[11];
        uint32_t table[32];
        EXPECT_EQ(vosMsgCcdObjInfoGetSend(&out[0], process, "object", 0, &out[1], &out[2], &out[3], &out[4], &out[5],
                                          &out[6], table, &out[7], &out[8], &out[9], &out[10]),
                  VOS_OK);
        other.join();
    });
}
