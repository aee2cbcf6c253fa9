/* SPDX-License-Identifier: MIT */
/* Many requests by many processes: each is answered once, by its receiver, with its own answer. */
#include <sys/wait.h>

#include <atomic>
#include <memory>
#include <thread>

#include "../vosMsg/peer.h"

using namespace vostest;

namespace {

constexpr uint32_t kStop = 0xFFFFFFFF;
constexpr uint32_t kTotal = 100000;

struct Numbered {
    uint32_t client;
    uint32_t number;
    uint32_t server;
};

std::string nameOf(uint32_t server) { return "server" + std::to_string(server); }

/* The right answer to a request. */
uint32_t codeFor(const Numbered &request) { return request.number * 31 + request.client * 7 + request.server; }

/* Serves until it is stopped. The numbers of every client must come in order, each once. Returns how many came. */
uint32_t serveUntilStopped(uint32_t self, uint32_t clients, uint32_t step) {
    std::vector<uint32_t> next(clients, step > 1 ? self : 0);
    for (uint32_t served = 0;; ++served) {
        Numbered request{};
        VOS_MSG_PEER peer;
        const int32_t received = vosMsgRecv(0, &request, sizeof request, 60000, &peer);
        if (received < 0 || request.client == kStop) return received < 0 ? 0 : served;
        if (request.server != self || request.client >= clients) {
            ADD_FAILURE() << "a request for server " << request.server << " came to " << self;
            return 0;
        }
        if (step != 0) {
            EXPECT_EQ(request.number, next[request.client]) << "lost or doubled";
            next[request.client] = request.number + step;
        }
        request.server += 1000; /* the answer differs from the request */
        vosMsgResp(0, codeFor(request), &request, sizeof request, &peer);
    }
}

/* One request. True when it was answered; an answer that is not its own fails the test. */
bool ask(uint32_t client, uint32_t number, uint32_t server, uint32_t timeoutMs, uint32_t flags) {
    Numbered request{client, number, server};
    uint32_t code = 0;
    if (vosMsgSend(nameOf(server).c_str(), &request, sizeof request, 0, &code, timeoutMs, flags) != VOS_OK)
        return false;
    const Numbered answer{client, number, server + 1000};
    EXPECT_EQ(memcmp(&request, &answer, sizeof answer), 0) << "another request's answer";
    EXPECT_EQ(code, codeFor(answer)) << "another request's code";
    return true;
}

void stop(uint32_t server) {
    const Numbered last{kStop, 0, server};
    VOS_MSG_HEAD head{};
    head.ulType = VOS_MSG_TYPE_SELF;
    EXPECT_TRUE(Peer{}.send("/tmp/vos/" + nameOf(server), Bytes{}.raw(&head, sizeof head).raw(&last, sizeof last)));
}

/* Half of the processes serve, the other half send requests to all of them in turn. */
void exchange(uint32_t processes, uint32_t requests) {
    setenv("VOS_TEST_PATIENCE", "12", 1);
    const uint32_t servers = processes / 2;
    const uint32_t clients = processes - servers;
    const uint32_t each = requests / clients / servers * servers;
    std::vector<Process> serving;
    for (uint32_t i = 0; i < servers; ++i) {
        serving.push_back(start([=] {
            openChannel(nameOf(i).c_str());
            ready();
            EXPECT_EQ(serveUntilStopped(i, clients, servers), each / servers * clients);
        }));
        serving.back().awaitReady();
    }
    std::vector<Process> asking;
    for (uint32_t i = 0; i < clients; ++i)
        asking.push_back(start([=] {
            for (uint32_t number = 0; number < each; ++number)
                ASSERT_TRUE(ask(i, number, number % servers, 60000, number / servers % 2)) << "lost";
        }));
    for (Process &process : asking) EXPECT_TRUE(process.finish().exited(0));
    for (uint32_t i = 0; i < servers; ++i) stop(i);
    for (Process &process : serving) EXPECT_TRUE(process.finish().exited(0));
    EXPECT_EQ(requesterPathsLeft(), 0);
    printf("%u processes: %u requests answered\n", processes, each * clients);
}

}  // namespace

/* Requests alternate between the normal and the high socket. The requests of one client still come in order, because a
 * client waits for each answer. */
TEST(RequestStress, TwoProcesses) { exchange(2, kTotal / 3 + 1); }
TEST(RequestStress, EightProcesses) { exchange(8, kTotal / 3 + 4); }
TEST(RequestStress, ThirtyTwoProcesses) { exchange(32, kTotal / 3 + 256); }

TEST(RequestStress, AServerRestartedUnderLoadGivesTheRightAnswerOrAnError) {
    setenv("VOS_TEST_PATIENCE", "6", 1);
    const auto serve = [] {
        openChannel("server0");
        ready();
        serveUntilStopped(0, 4, 0);
    };
    std::vector<Process> asking;
    auto server = std::make_unique<Process>(serve);
    server->awaitReady();
    for (uint32_t i = 0; i < 4; ++i)
        asking.push_back(start([=] {
            vosDebugConfig(0);
            uint32_t answered = 0;
            uint32_t failed = 0;
            for (uint32_t number = 0; answered < 500 || failed == 0; ++number)
                ++(ask(i, number, 0, 100, number % 2) ? answered : failed);
        }));
    /* restarted until every client has received answers and errors */
    const auto ended = [&](Process &process) {
        siginfo_t info{};
        return waitid(P_PID, static_cast<id_t>(process.pid()), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
               info.si_pid == process.pid();
    };
    int restarts = 0;
    while (!std::all_of(asking.begin(), asking.end(), ended) && restarts < 2000) {
        const timespec load{0, 20000000}; /* time with load between two restarts; it does not wait for an event */
        nanosleep(&load, nullptr);
        server = std::make_unique<Process>(serve); /* the new one binds the same paths, then the old one is killed */
        server->awaitReady();
        ++restarts;
    }
    EXPECT_GT(restarts, 1);
    for (Process &process : asking) EXPECT_TRUE(process.finish().exited(0));
    printf("%d restarts\n", restarts);
}

TEST(RequestStress, ThreadsOfOneProcessAskAtTheSameTime) {
    setenv("VOS_TEST_PATIENCE", "12", 1);
    run([] {
        constexpr uint32_t kThreads = 8;
        constexpr uint32_t kEach = 1000;
        openChannel("server0");
        std::atomic<uint32_t> answered = 0;
        std::vector<std::thread> threads;
        for (uint32_t i = 0; i < kThreads; ++i)
            threads.emplace_back([&, i] {
                for (uint32_t number = 0; number < kEach; ++number)
                    if (ask(i, number, 0, 60000, 0)) ++answered;
                if (i == 0) vosDebugConfig(VOS_DEBUG_ERROR | 8); /* the word may change while other threads read it */
            });
        std::thread stopper([&] {
            for (std::thread &thread : threads) thread.join();
            stop(0);
        });
        EXPECT_EQ(serveUntilStopped(0, kThreads, 1), kThreads * kEach);
        stopper.join();
        EXPECT_EQ(answered, kThreads * kEach);
    });
}
