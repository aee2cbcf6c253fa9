/* SPDX-License-Identifier: MIT */
/* Ten loops in one process at the same time: the main one, the second one, and eight thread channels. During the
 * requests the main loop and the second one fire timers and watch descriptors. */
#include <fcntl.h>

#include <array>
#include <atomic>
#include <thread>

#include "../vosMsg/peer.h"

using namespace vostest;

namespace {

constexpr uint32_t kThreads = 8;
constexpr uint32_t kLoops = kThreads + 2;
constexpr uint32_t kMain = kThreads;
constexpr uint32_t kSecond = kThreads + 1;
constexpr uint32_t kClients = 4;
constexpr uint32_t kEach = 2500; /* requests of one client to one loop: 100 000 in all */
constexpr uint32_t kStop = 0xFFFFFFFF;

struct Numbered {
    uint32_t client;
    uint32_t number;
    uint32_t loop;
};

uint32_t codeFor(const Numbered &request) { return request.number * 31 + request.client * 7 + request.loop; }

/* What one loop has received. The numbers of every client must come in order, each once. */
struct Count {
    std::array<uint32_t, kClients> next{};
    /* False at the stop message. */
    bool take(Numbered &request, uint32_t self) {
        if (request.client == kStop) return false;
        EXPECT_LT(request.client, kClients);
        EXPECT_EQ(request.loop, self) << "mixed up";
        EXPECT_EQ(request.number, next[request.client % kClients]++) << "lost or doubled";
        return true;
    }
    void expectAll() const { EXPECT_THAT(next, testing::Each(kEach)); }
};

template <class Receive, class Respond>
void loop(uint32_t self, Receive receiveOne, Respond respond) {
    Count count;
    Numbered request{};
    VOS_MSG_PEER peer;
    while (receiveOne(&request, sizeof request, &peer) >= 0 && count.take(request, self))
        respond(codeFor(request), &request, &peer);
    count.expectAll();
}

void threadLoop(uint32_t self, int32_t fd) {
    alignas(8) std::array<uint8_t, 32 + sizeof(Numbered)> buffer{};
    Count count;
    VOS_MSG_PEER peer;
    while (vosMsgThreadRecv(fd, buffer.data(), buffer.size(), 0, &peer) >= 0) {
        Numbered request{};
        memcpy(&request, &buffer[32], sizeof request);
        if (!count.take(request, self)) break;
        vosMsgThreadResp(0, buffer.data(), codeFor(request), sizeof request, &peer);
    }
    count.expectAll();
    close(fd);
}

/* During the requests: timers that callbacks cancel and register again, and a descriptor that both loops watch. The
 * list of descriptors has no lock, so it does not change while the loops run. */
struct Extra {
    std::atomic<uint32_t> fired = 0;
    std::atomic<uint32_t> read = 0;
    int ends[2] = {-1, -1};
} extra;

constexpr uint32_t kWakeByte = 4; /* the descriptor becomes readable at every such firing */

void expired(uint32_t, uint64_t) {
    if (++extra.fired % kWakeByte != 0) return;
    EXPECT_EQ(write(extra.ends[1], "x", 1), 1);
}

VOS_MSG_TIMER *changing;

/* Callback of the main loop: cancels a timer and registers another one in its place. */
void replaceTimer(uint32_t, uint64_t) {
    expired(0, 0);
    EXPECT_TRUE(changing == nullptr || vosTimerCancel(changing) == VOS_OK);
    EXPECT_EQ(vosTimerRegister(1, 1, expired, &changing, 0), VOS_OK);
}

int32_t readOne(int32_t fd, void *) {
    char byte = 0;
    if (read(fd, &byte, 1) == 1) ++extra.read;
    return 0;
}

void startBeside() {
    EXPECT_EQ(pipe2(extra.ends, O_NONBLOCK), 0);
    EXPECT_EQ(vosMsgSockAdd(extra.ends[0], readOne, nullptr), VOS_OK);
    VOS_MSG_TIMER *timer = nullptr;
    EXPECT_EQ(vosTimerRegister(1, 3, replaceTimer, &timer, 0), VOS_OK);
    EXPECT_EQ(vosTimerRegister2(1, 2, expired, &timer, 0), VOS_OK);
}

void expectBesideServed() {
    EXPECT_GT(extra.fired, 20u);
    EXPECT_GT(extra.read, 0u);
    EXPECT_LE(extra.read, extra.fired / kWakeByte);
}

void serveInTenLoops() {
    openChannel("node");
    int reserved = 0;
    vosDebugConfig(0);
    EXPECT_EQ(vosMsgInit2("second", 1, &reserved), VOS_OK);
    std::array<int32_t, kThreads> sockets{};
    for (uint32_t i = 0; i < kThreads; ++i)
        EXPECT_EQ(vosMsgThreadInit("node", static_cast<int32_t>(i), &sockets[i], 0), VOS_OK);
    vosDebugConfig(VOS_DEBUG_ERROR);
    startBeside();
    ready();
    std::vector<std::thread> threads;
    for (uint32_t i = 0; i < kThreads; ++i) threads.emplace_back(threadLoop, i, sockets[i]);
    threads.emplace_back([] {
        loop(
            kSecond, [](void *to, uint32_t size, VOS_MSG_PEER *peer) { return vosMsgRecv2(0, to, size, 60000, peer); },
            [](uint32_t code, const void *answer, const VOS_MSG_PEER *peer) {
                vosMsgResp2(0, code, answer, 12, peer);
            });
    });
    loop(
        kMain, [](void *to, uint32_t size, VOS_MSG_PEER *peer) { return vosMsgRecv(0, to, size, 60000, peer); },
        [](uint32_t code, const void *answer, const VOS_MSG_PEER *peer) { vosMsgResp(0, code, answer, 12, peer); });
    for (std::thread &thread : threads) thread.join();
    expectBesideServed();
}

int32_t ask(Numbered &request, uint32_t *code) {
    constexpr uint32_t kSize = sizeof request;
    if (request.loop == kMain) return vosMsgSend("node", &request, kSize, 0, code, 60000, 0);
    if (request.loop == kSecond) return vosMsgSend2("second", &request, kSize, 0, code, 60000, 0);
    return vosMsgThreadSend("node", static_cast<int32_t>(request.loop), &request, kSize, 0, code, 60000, 0);
}

}  // namespace

TEST(ChannelStress, TenLoopsOfOneProcessAnswer100000Requests) {
    setenv("VOS_TEST_PATIENCE", "12", 1);
    Process server = start(serveInTenLoops);
    server.awaitReady();
    std::vector<Process> clients;
    for (uint32_t client = 0; client < kClients; ++client)
        clients.push_back(start([=] {
            for (uint32_t number = 0; number < kEach; ++number)
                for (uint32_t to = 0; to < kLoops; ++to) {
                    Numbered request{client, number, (to + client) % kLoops};
                    const Numbered sent = request;
                    uint32_t code = 0;
                    ASSERT_EQ(ask(request, &code), VOS_OK);
                    ASSERT_EQ(code, codeFor(sent));
                    ASSERT_EQ(memcmp(&request, &sent, sizeof sent), 0);
                }
        }));
    for (Process &client : clients) EXPECT_TRUE(client.finish().exited(0));
    const Numbered last{kStop, 0, 0};
    const Bytes stop = message({}).raw(&last, sizeof last);
    for (uint32_t i = 0; i < kThreads; ++i) EXPECT_TRUE(Peer{}.send("/tmp/vos/node" + std::to_string(i), stop));
    EXPECT_TRUE(Peer{}.send("/tmp/vos/second", stop));
    EXPECT_TRUE(Peer{}.send("/tmp/vos/node", stop));
    EXPECT_TRUE(server.finish().exited(0));
    EXPECT_EQ(requesterPathsLeft(), 0);
}
