/* SPDX-License-Identifier: MIT */
/* Taps are switched on and off by control messages, which may be hostile. */
#include <fcntl.h>
#include <sys/stat.h>

#include "support/substitute.h"
#include "tap.h"

using namespace vostest;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

const std::string kName = "vosMsgProcessInternel:";

std::string refusal(const std::string &path, int error) { return errnoLine(kName + "tap " + path, error); }

int openDescriptors() {
    int count = 0;
    for (int fd = 0; fd < 1024; ++fd) count += fcntl(fd, F_GETFD) != -1 ? 1 : 0;
    return count;
}

/* One application message to the own process; whether a copy of it comes. */
bool copied(TapPeer &tap) {
    EXPECT_TRUE(Peer{}.send("/tmp/vos/A", application("seen?")));
    EXPECT_GT(receive().result, 0);
    return tap.hasMail() && tap.nextWhat() == VOS_MSG_TAP_RECEIVED;
}

/* The lines that a process writes when a tap sends it these bytes. Nothing is switched on by them. */
std::vector<std::string> linesAfter(const Bytes &bytes) {
    const Outcome outcome = run([&] {
        openChannel("A");
        TapPeer tap;
        EXPECT_TRUE(tap.send("/tmp/vos/A", bytes));
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        EXPECT_FALSE(copied(tap));
    });
    return withoutTuning(outcome.messages());
}

int ofAnotherUser(int fd, struct stat *state) {
    const int result = fstat(fd, state);
    state->st_uid = geteuid() + 1;
    return result;
}

}  // namespace

TEST(TapSwitch, OnIsAnsweredWithStartedAndOffWithStopped) {
    const Outcome outcome = run([] {
        openChannel("A");
        TapPeer tap;
        const int before = openDescriptors();
        tap.ask("A", VOS_MSG_TAP_ON);
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        const Copy started = tap.next();
        EXPECT_EQ(started.head.ucWhat, VOS_MSG_TAP_STARTED);
        EXPECT_EQ(started.own(), "/tmp/vos/A");
        EXPECT_EQ(started.head.ulProcessId, static_cast<uint32_t>(getpid()));
        EXPECT_EQ(started.head.ulThreadId, static_cast<uint32_t>(gettid()));
        EXPECT_EQ(started.head.ulWholeLen, 0u);
        EXPECT_EQ(started.head.iSocketFd, -1);
        EXPECT_EQ(started.head.ullNumber, 0u);
        EXPECT_EQ(openDescriptors(), before + 1);
        EXPECT_TRUE(copied(tap));
        tap.off();
        const Copy stopped = tap.next();
        EXPECT_EQ(stopped.head.ucWhat, VOS_MSG_TAP_STOPPED);
        EXPECT_EQ(stopped.head.ullNumber, 1u);
        EXPECT_EQ(stopped.head.ullLost, 0u);
        EXPECT_EQ(openDescriptors(), before);
        EXPECT_FALSE(copied(tap));
    });
    EXPECT_THAT(withoutTuning(outcome.messages()), IsEmpty());
}

TEST(TapSwitch, ATapOfAnotherProcessIsSwitchedTheSameWay) {
    Process server = start([] {
        openChannel("A");
        ready();
        receive();
    });
    server.awaitReady();
    TapPeer tap;
    tap.ask("A", VOS_MSG_TAP_ON);
    EXPECT_EQ(tap.next().head.ulProcessId, static_cast<uint32_t>(server.pid()));
    EXPECT_TRUE(Peer{}.send("/tmp/vos/A", application("end")));
    const Copy copy = tap.next();
    EXPECT_EQ(copy.head.ucWhat, VOS_MSG_TAP_RECEIVED);
    EXPECT_EQ(copy.message, application("end"));
    server.finish();
}

TEST(TapSwitch, OffOfATapThatIsNotOnHasNoEffectAndNoLine) {
    EXPECT_THAT(linesAfter(tapRequest(VOS_MSG_TAP_OFF, "/tmp/vos/tap")), IsEmpty());
}

TEST(TapSwitch, AnySocketMaySwitchOff) {
    run([] {
        openChannel("A");
        TapPeer tap;
        tap.on();
        EXPECT_TRUE(Peer{}.send("/tmp/vos/A", tapRequest(VOS_MSG_TAP_OFF, tap.path())));
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        EXPECT_EQ(tap.nextWhat(), VOS_MSG_TAP_STOPPED);
    });
}

TEST(TapSwitch, ARequestOfAnotherLengthIsDroppedWithALine) {
    const Bytes right = tapRequest(VOS_MSG_TAP_ON, "/tmp/vos/tap");
    ASSERT_EQ(right.size(), 140u);
    for (const std::size_t length : {32u, 33u, 44u, 139u, 141u, 4096u, 64600u}) {
        Bytes bytes = right;
        bytes.resize(length);
        EXPECT_THAT(linesAfter(bytes),
                    ElementsAre(kName + "tap request of " + std::to_string(length) + " bytes is malformed."));
    }
}

TEST(TapSwitch, APathThatIsNoNameBelowTheDirectoryIsDroppedWithALine) {
    for (const std::string &path :
         {std::string(108, 'x'), "/tmp/vos/" + std::string(99, 'n'), std::string{}, std::string{"tap"},
          std::string{"/tmp/vos"}, std::string{"/tmp/vos/"}, std::string{"/tmp/vos/."}, std::string{"/tmp/vos/.."},
          std::string{"/tmp/vos/../tap"}, std::string{"/tmp/vos/a/tap"}, std::string{"/tmp/vos//tap"},
          std::string{"/tmp/vos/tap/"}, std::string{"/tmp/other/tap"}, std::string{"/tmp/vosx/tap"},
          std::string{"tmp/vos/tap"}, std::string{"\0/tmp/vos/tap", 13}})
        EXPECT_THAT(linesAfter(tapRequest(VOS_MSG_TAP_ON, path)), ElementsAre(kName + "tap request is malformed."))
            << path;
}

TEST(TapSwitch, AnUnknownActionAFlagOrAWrongLengthWordIsDroppedWithALine) {
    for (const Head &head :
         {Head{.value1 = 2, .length = 108}, Head{.value1 = 0xFFFFFFFF, .length = 108},
          Head{.value1 = 1, .value3 = 1, .length = 108}, Head{.value1 = 0, .value3 = 8, .length = 108},
          Head{.value1 = 1, .value4 = 1, .length = 108}, Head{.value1 = 1, .length = 107},
          Head{.value1 = 1, .length = 0xFFFFFFFF}, Head{.value1 = 1}}) {
        Head typed = head;
        typed.type = VOS_MSG_TAP;
        const std::string path = "/tmp/vos/tap";
        EXPECT_THAT(linesAfter(message(typed).text(path).fill(108 - path.size())),
                    ElementsAre(kName + "tap request is malformed."));
    }
}

TEST(TapSwitch, NobodyCanSwitchOnTheTapOfSomebodyElse) {
    const Outcome outcome = run([] {
        openChannel("A");
        TapPeer tap;
        const Bytes request = tapRequest(VOS_MSG_TAP_ON, tap.path());
        EXPECT_TRUE(Peer{}.send("/tmp/vos/A", request));                  /* unbound */
        EXPECT_TRUE(Peer{"/tmp/vos/tapper"}.send("/tmp/vos/A", request)); /* another name with the same beginning */
        EXPECT_TRUE(Peer{"/tmp/vos/ta"}.send("/tmp/vos/A", request));
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        EXPECT_FALSE(tap.hasMail());
        EXPECT_FALSE(copied(tap));
    });
    const std::string line = kName + "tap /tmp/vos/tap was not asked for by itself.";
    EXPECT_THAT(withoutTuning(outcome.messages()), ElementsAre(line, line, line));
}

TEST(TapSwitch, ALinkAFifoADirectoryAFileAndNothingAreRefused) {
    const std::pair<int, std::function<void(const std::string &)>> places[] = {
        {EPERM, [](const std::string &path) { EXPECT_EQ(symlink("real", path.c_str()), 0); }},
        {EPERM, [](const std::string &path) { EXPECT_EQ(mkfifo(path.c_str(), 0666), 0); }},
        {EPERM, [](const std::string &path) { EXPECT_EQ(mkdir(path.c_str(), 0777), 0); }},
        {EPERM, [](const std::string &path) { close(open(path.c_str(), O_CREAT | O_WRONLY, 0666)); }},
        {ENOENT, [](const std::string &) {}},
    };
    for (const auto &[error, put] : places) {
        const Outcome outcome = run([put = put] {
            freshWorld();
            openChannel("A");
            TapPeer tap;
            EXPECT_EQ(rename("/tmp/vos/tap", "/tmp/vos/real"), 0);
            put(tap.path());
            tap.ask("A", VOS_MSG_TAP_ON);
            EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
            EXPECT_TRUE(Peer{}.send("/tmp/vos/A", application("unseen")));
            EXPECT_GT(receive().result, 0);
            while (tap.hasMail()) EXPECT_EQ(tap.nextWhat(), VOS_MSG_TAP_REFUSED); /* by way of the link */
        });
        EXPECT_THAT(withoutTuning(outcome.messages()), ElementsAre(refusal("/tmp/vos/tap", error)));
    }
}

TEST(TapSwitch, AStreamSocketUnderThePathIsRefused) {
    const Outcome outcome = run([] {
        openChannel("A");
        TapPeer tap;
        const int stream = socket(AF_UNIX, SOCK_STREAM, 0);
        EXPECT_EQ(unlink(tap.path().c_str()), 0);
        const sockaddr_un address = addressOf(tap.path());
        EXPECT_EQ(bind(stream, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(listen(stream, 1), 0);
        tap.ask("A", VOS_MSG_TAP_ON);
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
    });
    EXPECT_THAT(withoutTuning(outcome.messages()), ElementsAre(refusal("/tmp/vos/tap", EPROTOTYPE)));
}

TEST(TapSwitch, ASocketOfAnotherUserIsRefusedAndTold) {
    const Outcome outcome = run([] {
        openChannel("A");
        TapPeer tap;
        substitute("fstat", ofAnotherUser);
        const int before = openDescriptors();
        tap.ask("A", VOS_MSG_TAP_ON);
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        const Copy refused = tap.next();
        EXPECT_EQ(refused.head.ucWhat, VOS_MSG_TAP_REFUSED);
        EXPECT_EQ(refused.head.iErrno, EPERM);
        EXPECT_EQ(refused.own(), "/tmp/vos/A");
        EXPECT_EQ(openDescriptors(), before);
        EXPECT_FALSE(copied(tap));
    });
    EXPECT_THAT(withoutTuning(outcome.messages()), ElementsAre(refusal("/tmp/vos/tap", EPERM)));
}

TEST(TapSwitch, FourAreOnAndAFifthIsRefusedWithALineUntilOneIsOff) {
    const Outcome outcome = run([] {
        openChannel("A");
        TapPeer taps[] = {TapPeer{"t1"}, TapPeer{"t2"}, TapPeer{"t3"}, TapPeer{"t4"}};
        TapPeer fifth{"t5"};
        for (TapPeer &tap : taps) tap.on();
        const int before = openDescriptors();
        fifth.ask("A", VOS_MSG_TAP_ON);
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        const Copy refused = fifth.next();
        EXPECT_EQ(refused.head.ucWhat, VOS_MSG_TAP_REFUSED);
        EXPECT_EQ(refused.head.iErrno, EBUSY);
        EXPECT_EQ(openDescriptors(), before);
        EXPECT_TRUE(Peer{}.send("/tmp/vos/A", application("for four")));
        EXPECT_GT(receive().result, 0);
        for (TapPeer &tap : taps) EXPECT_EQ(tap.next().message, application("for four"));
        EXPECT_FALSE(fifth.hasMail());
        taps[1].off();
        EXPECT_EQ(taps[1].nextWhat(), VOS_MSG_TAP_STOPPED);
        fifth.on();
        EXPECT_TRUE(copied(fifth));
    });
    EXPECT_THAT(withoutTuning(outcome.messages()), ElementsAre(refusal("/tmp/vos/t5", EBUSY)));
}

TEST(TapSwitch, OnAgainChangesTheLimitAndKeepsTheCounts) {
    run([] {
        openChannel("A");
        TapPeer tap;
        const int before = openDescriptors();
        tap.on(0);
        EXPECT_TRUE(copied(tap));
        tap.ask("A", VOS_MSG_TAP_ON, 4);
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        const Copy again = tap.next();
        EXPECT_EQ(again.head.ucWhat, VOS_MSG_TAP_STARTED);
        EXPECT_EQ(again.head.ullNumber, 1u);
        EXPECT_EQ(openDescriptors(), before + 1);
        EXPECT_TRUE(Peer{}.send("/tmp/vos/A", application("cut after four")));
        EXPECT_GT(receive().result, 0);
        const Copy copy = tap.next();
        EXPECT_EQ(copy.head.ullNumber, 2u);
        EXPECT_EQ(copy.message.size(), 36u);
    });
}

TEST(TapSwitch, ANewSocketUnderThePathOfAnEndedTapIsSwitchedOn) {
    const Outcome outcome = run([] {
        openChannel("A");
        const int before = openDescriptors();
        { TapPeer{}.on(); }
        TapPeer tap;
        tap.on();
        EXPECT_TRUE(copied(tap));
        EXPECT_EQ(openDescriptors(), before + 2); /* the tap, and the process's socket to it */
    });
    EXPECT_THAT(withoutTuning(outcome.messages()), IsEmpty());
}

TEST(TapSwitch, WhoTakesOverThePathGetsNoCopiesAndMayAskForThem) {
    run([] {
        openChannel("A");
        TapPeer first;
        first.on();
        TapPeer second; /* under the same path */
        EXPECT_TRUE(copied(first));
        EXPECT_FALSE(second.hasMail());
        second.on();
        EXPECT_EQ(first.nextWhat(), VOS_MSG_TAP_STOPPED);
        EXPECT_TRUE(copied(second));
        EXPECT_FALSE(first.hasMail());
    });
}

TEST(TapSwitch, TheSocketsOfAllChannelsTakeTheRequest) {
    run([] {
        int reserved = 0;
        int32_t thread = -1;
        openChannel("A");
        vosDebugConfig(0);
        EXPECT_EQ(vosMsgInit2("second", 1, &reserved), VOS_OK);
        EXPECT_EQ(vosMsgThreadInit("A", 1, &thread, 0), VOS_OK);
        TapPeer high{"high"};
        high.on(0, "AHigh");
        for (const std::string name : {"second", "secondHigh"}) {
            TapPeer tap{"for" + name};
            tap.ask(name, VOS_MSG_TAP_ON);
            std::array<char, 100> room;
            VOS_MSG_PEER peer;
            EXPECT_EQ(vosMsgRecv2(0, room.data(), 100, 0, &peer), VOS_ERR_TIMEOUT);
            EXPECT_EQ(tap.nextWhat(), VOS_MSG_TAP_STARTED);
        }
        TapPeer tap{"forThread"};
        tap.ask("A1", VOS_MSG_TAP_ON);
        EXPECT_TRUE(Peer{}.send("/tmp/vos/A1", application("end")));
        alignas(8) std::array<char, 200> room;
        VOS_MSG_PEER peer;
        EXPECT_EQ(vosMsgThreadRecv(thread, room.data(), 200, 0, &peer), 35);
        const Copy started = tap.next();
        EXPECT_EQ(started.head.ucWhat, VOS_MSG_TAP_STARTED);
        EXPECT_EQ(started.own(), "/tmp/vos/A");
    });
}

TEST(TapSwitch, ACopyThatComesToAMessageSocketIsRejected) {
    const Outcome outcome = run([] {
        openChannel("A");
        VOS_MSG_TAP_HEAD head{};
        head.ulType = VOS_MSG_TAP_COPY;
        EXPECT_TRUE(Peer{}.send("/tmp/vos/A", Bytes{}.raw(&head, sizeof head)));
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
    });
    EXPECT_THAT(withoutTuning(outcome.messages()), ElementsAre(kName + "invalid msg type 1987015426."));
}

TEST(TapSwitch, EachFailingCallRefusesWithItsErrnoAndKeepsNothing) {
    const auto prepare = [] {
        freshWorld();
        openChannel("A");
        knowProcessId();
        static TapPeer *tap;
        tap = new TapPeer;
        tap->ask("A", VOS_MSG_TAP_ON);
    };
    const auto attempts = failEachCall(prepare, [] {
        const long result = receive(100, 0).result;
        receive(100, 0);
        return result;
    });
    for (const std::string call : {"open#1", "fstat#1", "socket#1", "connect#1"}) {
        const Attempt &attempt = at(attempts, call);
        EXPECT_EQ(attempt.result, VOS_ERR_TIMEOUT) << call;
        EXPECT_THAT(withoutTuning(attempt.messages), ElementsAre(refusal("/tmp/vos/tap", EIO))) << call;
        EXPECT_EQ(attempt.descriptorsKept, 0) << call;
    }
    /* Without the wide buffer, the clock's moment or the report the tap is on all the same. */
    for (const std::string call : {"setsockopt#1", "clock_gettime#1", "clock_gettime#2", "sendmsg#1", "close#1"}) {
        const Attempt &attempt = at(attempts, call);
        EXPECT_EQ(attempt.result, VOS_ERR_TIMEOUT) << call;
        EXPECT_THAT(withoutTuning(attempt.messages), IsEmpty()) << call;
        EXPECT_EQ(attempt.descriptorsKept, 1) << call;
    }
}

TEST(TapSwitch, WithoutAFreeDescriptorItIsRefusedAndTold) {
    const Outcome outcome = run([] {
        openChannel("A");
        TapPeer tap;
        tap.ask("A", VOS_MSG_TAP_ON);
        {
            const NoFreeDescriptor none;
            EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        }
        const Copy refused = tap.next();
        EXPECT_EQ(refused.head.ucWhat, VOS_MSG_TAP_REFUSED);
        EXPECT_EQ(refused.head.iErrno, EMFILE);
        EXPECT_EQ(refused.head.iResult, -1);
    });
    EXPECT_THAT(withoutTuning(outcome.messages()), ElementsAre(refusal("/tmp/vos/tap", EMFILE)));
}

TEST(TapSwitch, TheSocketTakesNoStandardDescriptor) {
    const Outcome outcome = run([] {
        openChannel("A");
        TapPeer tap;
        const int output = dup(STDOUT_FILENO);
        close(STDIN_FILENO);
        close(STDOUT_FILENO);
        tap.on();
        EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
        EXPECT_EQ(fcntl(STDOUT_FILENO, F_GETFD), -1);
        EXPECT_EQ(dup2(output, STDOUT_FILENO), STDOUT_FILENO);
        EXPECT_TRUE(copied(tap));
    });
    EXPECT_THAT(withoutTuning(outcome.messages()), IsEmpty());
}
