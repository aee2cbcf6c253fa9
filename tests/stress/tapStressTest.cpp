/* SPDX-License-Identifier: MIT */
/* Many processes exchange many messages under a tap: the exchange is complete, and each message is in the capture once
 * for each side, or counted as lost. */
#include <poll.h>

#include <map>
#include <vector>

#include "../vosMsg/tap.h"

using namespace vostest;

namespace {

constexpr uint32_t kServers = 10;
constexpr uint32_t kClients = 10;
constexpr uint32_t kRequests = 10000; /* of each client: with their answers 200,000 messages in all */
constexpr uint32_t kStop = 0xFFFFFFFF;

struct Numbered {
    uint32_t client;
    uint32_t number;
};

std::string serverName(uint32_t number) { return "server" + std::to_string(number); }
std::string clientName(uint32_t number) { return "tapped" + std::to_string(number); }

void serve(uint32_t self) {
    uint32_t served = 0;
    openChannel(serverName(self).c_str());
    ready();
    for (;; ++served) {
        Numbered request{};
        VOS_MSG_PEER peer;
        if (vosMsgRecv(0, &request, sizeof request, 60000, &peer) < 0 || request.client == kStop) break;
        EXPECT_EQ(vosMsgResp(0, request.number, &request, sizeof request, &peer), VOS_OK);
    }
    EXPECT_EQ(served, kClients * kRequests / kServers);
}

/* A client has a channel only so that a tap can be switched on in it. */
void ask(uint32_t self) {
    openChannel(clientName(self).c_str());
    ready();
    EXPECT_EQ(receive(0, 60000).result, 0) << "nobody said that it may begin";
    for (uint32_t number = 0; number < kRequests; ++number) {
        Numbered request{self, number};
        uint32_t code = 0;
        ASSERT_EQ(vosMsgSend(serverName(number % kServers).c_str(), &request, sizeof request, 0, &code, 60000, 0),
                  VOS_OK);
        ASSERT_EQ(code, number);
        ASSERT_EQ(request.client, self);
        ASSERT_EQ(request.number, number);
    }
    EXPECT_TRUE(Peer{}.send("/tmp/vos/done", Bytes{}.word(self)));
    EXPECT_EQ(receive(0, 60000).result, 0) << "nobody said that it may end";
}

/* Not one of the counted messages. */
void say(const std::string &name, uint32_t client) {
    EXPECT_TRUE(Peer{}.send("/tmp/vos/" + name, application("").word(client).word(kRequests)));
}

/* What the tap has of one process. */
struct Captured {
    uint64_t copies = 0;
    std::vector<bool> numbers; /* those of its copies that came */
};

/* Each message has to come at most once from each side. */
class Capture {
  public:
    /* Reads one datagram. True when it says that a process is no longer tapped. */
    bool read(const TapPeer &tap) {
        struct {
            VOS_MSG_TAP_HEAD head;
            VOS_MSG_HEAD message;
            Numbered payload;
        } copy{};
        static_assert(sizeof copy == 304 + 32 + 8);
        const ssize_t count = recv(tap.fd(), &copy, sizeof copy, 0);
        if (count < static_cast<ssize_t>(sizeof copy.head)) {
            ADD_FAILURE() << "no copy came: " << count;
            return true;
        }
        Captured &process = processes_[copy.head.ulProcessId];
        if (copy.head.ucWhat == VOS_MSG_TAP_STOPPED) return finish(process, copy.head);
        if (copy.head.ucWhat == VOS_MSG_TAP_STARTED) return false;
        mark(process.numbers, copy.head.ullNumber, "one running number");
        ++process.copies;
        if (copy.payload.client < kClients && copy.payload.number < kRequests)
            mark(sides_, index(copy.head, copy.payload), "one message");
        return false;
    }
    [[nodiscard]] uint64_t copies() const { return copies_; }
    [[nodiscard]] uint64_t lost() const { return lost_; }

  private:
    /* Four copies of each request: sent and received, the answer sent and received. */
    static uint64_t index(const VOS_MSG_TAP_HEAD &head, const Numbered &payload) {
        const uint32_t side = (head.ucWhat - 1u) * 2 + (head.ucStage - 1u);
        EXPECT_LT(side, 4u);
        return (side * kClients + payload.client) * uint64_t{kRequests} + payload.number;
    }
    static void mark(std::vector<bool> &seen, uint64_t at, const char *what) {
        if (at >= seen.size()) seen.resize(at + 1);
        EXPECT_FALSE(seen[at]) << what << " came twice";
        seen[at] = true;
    }
    bool finish(const Captured &process, const VOS_MSG_TAP_HEAD &head) {
        EXPECT_EQ(process.copies + head.ullLost, head.ullNumber) << "a copy is neither here nor counted as lost";
        copies_ += process.copies;
        lost_ += head.ullLost;
        return true;
    }

    std::map<uint32_t, Captured> processes_;
    std::vector<bool> sides_;
    uint64_t copies_ = 0;
    uint64_t lost_ = 0;
};

}  // namespace

TEST(TapStress, TwentyProcessesExchangeAndEachMessageIsCapturedOnceForEachSideOrCountedAsLost) {
    setenv("VOS_TEST_PATIENCE", "12", 1);
    std::vector<Process> processes;
    std::vector<std::string> names;
    for (uint32_t i = 0; i < kServers; ++i) {
        processes.push_back(start([=] { serve(i); }));
        names.push_back(serverName(i));
    }
    for (uint32_t i = 0; i < kClients; ++i) {
        processes.push_back(start([=] { ask(i); }));
        names.push_back(clientName(i));
    }
    for (Process &process : processes) process.awaitReady();
    TapPeer tap;
    Peer finished{"/tmp/vos/done"};
    Capture capture;
    for (const std::string &name : names) {
        tap.ask(name, VOS_MSG_TAP_ON);
        EXPECT_FALSE(capture.read(tap));
    }
    for (uint32_t i = 0; i < kClients; ++i) say(clientName(i), i);
    /* A client that has all its answers says so, and waits. The copies are read meanwhile. */
    for (uint32_t done = 0; done < kClients;) {
        pollfd both[] = {{tap.fd(), POLLIN, 0}, {finished.fd(), POLLIN, 0}};
        ASSERT_GT(poll(both, 2, static_cast<int>(deadline().count())), 0) << "nothing happens any more";
        if ((both[0].revents & POLLIN) != 0) capture.read(tap);
        if ((both[1].revents & POLLIN) == 0) continue;
        finished.receive();
        ++done;
    }
    for (const std::string &name : names) { /* one after another, so that there is room for each last datagram */
        while (tap.hasMail()) capture.read(tap);
        tap.ask(name, VOS_MSG_TAP_OFF);
        while (!capture.read(tap)) continue;
    }
    for (uint32_t i = 0; i < kClients; ++i) say(clientName(i), i);
    for (uint32_t i = 0; i < kServers; ++i) say(serverName(i), kStop);
    for (Process &process : processes) EXPECT_TRUE(process.finish().exited(0));
    constexpr uint64_t kAll = 4ull * kClients * kRequests + kClients; /* and what let the clients begin */
    EXPECT_EQ(capture.copies() + capture.lost(), kAll);
    EXPECT_GT(capture.copies(), 0u);
    EXPECT_EQ(requesterPathsLeft(), 0);
    printf("%lu of %lu copies captured, %lu counted as lost\n", capture.copies(), kAll, capture.lost());
}
