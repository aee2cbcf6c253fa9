/* SPDX-License-Identifier: MIT */
/* A tap in a process that gets signals at its copies, that forks, or that executes another program. */
#include <sys/wait.h>

#include <csignal>

#include "support/signals.h"
#include "support/substitute.h"
#include "tap.h"

using namespace vostest;
using testing::IsEmpty;

namespace {

uint32_t code;

/* In place of sendmsg(): a signal comes directly before a copy and directly after it. */
int signalled = 0;
ssize_t sendBetweenSignals(int fd, const msghdr *message, int flags) {
    const bool copy = (flags & MSG_DONTWAIT) != 0;
    if (copy) raise(SIGUSR1);
    const ssize_t result = sendmsg(fd, message, flags);
    if (!copy) return result;
    const int error = errno;
    raise(SIGUSR1);
    signalled += 2;
    errno = error;
    return result;
}

/* In place of sendmsg(): a copy is interrupted. */
ssize_t interruptCopies(int fd, const msghdr *message, int flags) {
    if ((flags & MSG_DONTWAIT) == 0) return sendmsg(fd, message, flags);
    raise(SIGUSR1);
    errno = EINTR;
    return -1;
}

/* errno behind the two calls of an exchange. */
using Errnos = std::pair<int, int>;

/* A message to the process itself, which must come back once and unchanged. Two copies: it is sent and received. */
Errnos exchange(uint32_t number) {
    errno = 77;
    EXPECT_EQ(vosMsgSend("A", &number, sizeof number, 1, &code, 3000, 0), VOS_OK);
    const int sending = errno;
    errno = 77;
    const Received got = receive();
    const int receiving = errno;
    EXPECT_EQ(got.result, 36);
    uint32_t came = 0;
    memcpy(&came, got.bytes.data(), sizeof came);
    EXPECT_EQ(came, number);
    return {sending, receiving};
}

/* The copies of that message, with the next two running numbers. */
void expectBothCopies(TapPeer &tap, uint32_t number) {
    for (const unsigned part : {1U, 2U}) {
        const Copy copy = tap.next();
        EXPECT_EQ(copy.head.ucWhat, part == 1 ? VOS_MSG_TAP_SENT : VOS_MSG_TAP_RECEIVED);
        EXPECT_EQ(copy.head.ullNumber, 2 * uint64_t{number} + part);
        EXPECT_EQ(copy.head.ullLost, 0u);
        EXPECT_EQ(copy.message.wordAt(32), number);
    }
}

/* Descriptors of a process that are sockets. */
int socketsOf(pid_t process) {
    int count = 0;
    std::error_code failed;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/fd", failed))
        if (std::filesystem::read_symlink(entry, failed).string().starts_with("socket:")) ++count;
    return count;
}

void sendMany(uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t number = i;
        EXPECT_EQ(vosMsgSend("B", &number, sizeof number, 1, &code, 20000, 0), VOS_OK);
    }
}

constexpr uint32_t kMany = 300;

/* Each of the copies has come or is counted as lost, and all that came are of this process. `off` switches the tap off.
 * It is called when the tap has room for the last datagram. */
void expectAllOf(TapPeer &tap, uint64_t copies, const Body &off) {
    uint64_t got = 0;
    for (; tap.hasMail(); ++got) EXPECT_EQ(tap.next().head.ulProcessId, static_cast<uint32_t>(getpid()));
    off();
    const Copy stopped = tap.next();
    EXPECT_EQ(stopped.head.ucWhat, VOS_MSG_TAP_STOPPED);
    EXPECT_EQ(stopped.head.ullNumber, copies);
    EXPECT_EQ(got + stopped.head.ullLost, copies);
    EXPECT_GT(got, 0u);
}

/* Serves the second channel until nothing is left there. */
void serveSecond() {
    std::array<char, 100> room;
    VOS_MSG_PEER peer;
    EXPECT_EQ(vosMsgRecv2(0, room.data(), 100, 0, &peer), VOS_ERR_TIMEOUT);
}

/* A child that sends without a tap, and then with its own. It shares the channel's sockets with its parent, and either
 * could take a request from them, so it has a second channel. */
[[noreturn]] void sendInChild() {
    int reserved = 0;
    sendMany(kMany);
    EXPECT_EQ(vosMsgInit2("C", 1, &reserved), VOS_OK);
    TapPeer tap{"childs"};
    tap.ask("C", VOS_MSG_TAP_ON, 0);
    serveSecond();
    EXPECT_EQ(tap.nextWhat(), VOS_MSG_TAP_STARTED);
    sendMany(kMany);
    expectAllOf(tap, kMany, [&] {
        tap.ask("C", VOS_MSG_TAP_OFF);
        serveSecond();
    });
    _exit(testing::Test::HasFailure());
}

}  // namespace

TEST(TapProcess, ASignalAtACopyLosesAndDoublesNothingAndChangesNoResult) {
    for (const int flags : {0, SA_RESTART}) {
        const Outcome outcome = run([flags] {
            openChannel("A");
            const Errnos without = exchange(0);
            TapPeer tap;
            tap.on();
            countSignals(SIGUSR1, flags);
            substitute("sendmsg", sendBetweenSignals);
            for (uint32_t number = 0; number < 50; ++number) {
                EXPECT_EQ(exchange(number), without);
                expectBothCopies(tap, number);
            }
            EXPECT_FALSE(tap.hasMail());
            EXPECT_EQ(signalled, 200);
            EXPECT_EQ(signalsCounted(), signalled);
        });
        EXPECT_THAT(withoutTuning(outcome.messages()), IsEmpty());
    }
}

TEST(TapProcess, ACopyThatASignalInterruptsIsCountedAsLostAndNotSentAgain) {
    for (const int flags : {0, SA_RESTART}) {
        const Outcome outcome = run([flags] {
            openChannel("A");
            const Errnos without = exchange(0);
            TapPeer tap;
            tap.on();
            countSignals(SIGUSR1, flags);
            substitute("sendmsg", interruptCopies);
            for (uint32_t number = 0; number < 10; ++number) EXPECT_EQ(exchange(number), without);
            EXPECT_EQ(signalsCounted(), 20);
            EXPECT_FALSE(tap.hasMail());
            substitute("sendmsg", sendmsg);
            exchange(10);
            const Copy copy = tap.next();
            EXPECT_EQ(copy.head.ullNumber, 21u);
            EXPECT_EQ(copy.head.ullLost, 20u);
        });
        EXPECT_THAT(withoutTuning(outcome.messages()), IsEmpty());
    }
}

TEST(TapProcess, SignalsAtAnyMomentLoseAndDoubleNothing) {
    for (const int flags : {0, SA_RESTART}) {
        const Outcome outcome = run([flags] {
            openChannel("A");
            const Errnos without = exchange(0);
            TapPeer tap;
            tap.on();
            countSignals(SIGUSR1, flags);
            const pid_t target = getpid();
            const pid_t sender = fork();
            if (sender == 0) {
                while (kill(target, SIGUSR1) == 0) continue;
                _exit(0);
            }
            uint32_t number = 0;
            const auto exchangeNext = [&] {
                EXPECT_EQ(exchange(number), without);
                expectBothCopies(tap, number++);
                return number >= 50 && signalsCounted() >= 100; /* however slow the machine is */
            };
            eventually(exchangeNext);
            EXPECT_GE(signalsCounted(), 100);
            kill(sender, SIGKILL);
            while (waitpid(sender, nullptr, 0) == -1 && errno == EINTR) continue;
            EXPECT_FALSE(tap.hasMail());
        });
        EXPECT_THAT(withoutTuning(outcome.messages()), IsEmpty());
    }
}

TEST(TapProcess, AProgramThatItExecutesHasNoTapAndNoDescriptorOfItAndCanBeTappedAgain) {
    Process server = start([] {
        openChannel("A");
        ready();
        EXPECT_EQ(receive().result, 36); /* the request for the tap was taken before it */
        EXPECT_EQ(socketsOf(getpid()), 3);
        execl((testPrograms() + "/peer").c_str(), "peer", "A", nullptr);
        _exit(127);
    });
    server.awaitReady();
    TapPeer tap; /* opened now, so that the server did not inherit it */
    tap.ask("A", VOS_MSG_TAP_ON);
    EXPECT_EQ(tap.nextWhat(), VOS_MSG_TAP_STARTED);
    EXPECT_TRUE(Peer{}.send("/tmp/vos/A", application("exec")));
    EXPECT_EQ(tap.nextWhat(), VOS_MSG_TAP_RECEIVED);
    server.awaitOutput("ready");
    EXPECT_EQ(socketsOf(server.pid()), 2);
    /* The program answers a request, and the tap, which is still open, gets nothing of it. */
    Peer client{"/tmp/vos/client"};
    EXPECT_TRUE(client.send("/tmp/vos/A", application("text")));
    EXPECT_EQ(client.receive().size(), 32u + 256);
    EXPECT_FALSE(tap.hasMail());
    /* Its own tap has its own numbers. */
    tap.ask("A", VOS_MSG_TAP_ON);
    const Copy started = tap.next();
    EXPECT_EQ(started.head.ucWhat, VOS_MSG_TAP_STARTED);
    EXPECT_EQ(started.head.ulProcessId, static_cast<uint32_t>(server.pid()));
    EXPECT_EQ(started.head.ullNumber, 0u);
    EXPECT_TRUE(client.send("/tmp/vos/A", application("text")));
    for (const int what : {VOS_MSG_TAP_RECEIVED, VOS_MSG_TAP_SENT}) EXPECT_EQ(tap.nextWhat(), what);
    EXPECT_EQ(client.receive().size(), 32u + 256);
    server.send(SIGKILL);
    server.finish();
}

TEST(TapProcess, AProgramThatAChildExecutesHasNoDescriptorOfTheTap) {
    run([] {
        openChannel("A");
        TapPeer tap;
        tap.on();
        const pid_t child = fork();
        if (child == 0) {
            execl((testPrograms() + "/peer").c_str(), "peer", "child", nullptr);
            _exit(127);
        }
        EXPECT_TRUE(eventually([] { return exists("/tmp/vos/childHigh"); }));
        EXPECT_EQ(socketsOf(child), 3); /* its two, and this test's tap, which is an ordinary descriptor */
        uint32_t number = 0;
        EXPECT_EQ(vosMsgSend("child", &number, sizeof number, 1, &code, 20000, 0), VOS_OK);
        EXPECT_EQ(tap.nextWhat(), VOS_MSG_TAP_SENT);
        EXPECT_FALSE(tap.hasMail());
        EXPECT_EQ(kill(child, SIGKILL), 0);
        EXPECT_EQ(waitpid(child, nullptr, 0), child);
    });
}

TEST(TapProcess, OfAParentAndAChildThatSendAtTheSameTimeEachHasItsOwnTap) {
    Process receiver = start([] {
        openChannel("B");
        ready();
        for (uint32_t i = 0; i < 3 * kMany; ++i) EXPECT_EQ(receive().result, 36);
    });
    receiver.awaitReady();
    const Outcome outcome = run([] {
        openChannel("A");
        vosDebugConfig(0);
        TapPeer tap{"parents"};
        tap.on(0);
        const pid_t child = fork();
        if (child == 0) sendInChild();
        sendMany(kMany);
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
        expectAllOf(tap, kMany, [&] { tap.off(); });
    });
    EXPECT_THAT(withoutTuning(outcome.messages()), IsEmpty());
    receiver.finish(); /* all messages came */
}
