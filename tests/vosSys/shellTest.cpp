/* SPDX-License-Identifier: MIT */
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "pty.h"
#include "support/faults.h"
#include "support/substitute.h"
#include "vos.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint32_t kPlain = 0;
constexpr uint32_t kInteractive = 1;

struct sigaction dispositionOf(int number) {
    struct sigaction now = {};
    sigaction(number, nullptr, &now);
    return now;
}

volatile sig_atomic_t handled = 0;
volatile sig_atomic_t handledCode = 0;
void handlerWithInfo(int number, siginfo_t *info, void * /*context*/) {
    handled = number;
    handledCode = info->si_code;
}

void handle(int number) {
    struct sigaction action = {};
    action.sa_sigaction = handlerWithInfo;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    sigaddset(&action.sa_mask, SIGUSR2);
    sigaction(number, &action, nullptr);
}

void expectHandlerStillThere(int number) {
    const struct sigaction now = dispositionOf(number);
    EXPECT_EQ(now.sa_sigaction, handlerWithInfo);
    EXPECT_EQ(now.sa_flags & (SA_SIGINFO | SA_RESTART), SA_SIGINFO | SA_RESTART);
    EXPECT_EQ(sigismember(&now.sa_mask, SIGUSR2), 1);
}

std::string contents(const std::string &path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

int32_t statusOf(const char *command) {
    int32_t status = -1;
    EXPECT_EQ(vosSystem2(command, kPlain, &status), VOS_OK);
    return status;
}

/* A terminal that neither makes signals nor echoes, as a full-screen program leaves it. */
void quietTerminal() {
    termios quiet = StandardInputTerminal::settings();
    quiet.c_lflag &= ~static_cast<tcflag_t>(ISIG | ECHO);
    StandardInputTerminal::set(quiet);
}

/* A command that writes the terminal's settings to a file. */
const char *const kTellSettings = "stty -a > /tmp/settings";

/* Whether a child of this process has become a shell. */
bool shellRuns() {
    const std::string child = "(sh) S " + std::to_string(getpid()) + " ";
    for (const auto &each : std::filesystem::directory_iterator("/proc"))
        if (contents(each.path() / "stat").find(child) != std::string::npos) return true;
    return false;
}

/* A program named "reboot", first in the path, that only counts how often it was started. */
void harmlessReboot() {
    std::filesystem::create_directory("/tmp/bin");
    std::ofstream{"/tmp/bin/reboot"} << "#!/bin/sh\necho \"$0\" >> /tmp/rebooted\n";
    chmod("/tmp/bin/reboot", 0755);
    setenv("PATH", "/tmp/bin:/usr/bin:/bin", 1);
}

}  // namespace

TEST(Shell, AFailingCommandStillCountsAsRun) {
    const Outcome outcome = run([] { EXPECT_EQ(vosSystem("exit 3", kPlain), VOS_OK); });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(Shell, TheStatusIsTheRawWaitStatus) {
    run([] {
        EXPECT_EQ(statusOf("exit 3"), 768);
        EXPECT_EQ(statusOf("true"), 0);
        EXPECT_EQ(statusOf("kill -9 $$"), 9);
    });
}

TEST(Shell, ACommandThatIsNotFoundEndsWith127) {
    run([] {
        EXPECT_EQ(vosSystem("no-such-command-here 2> /dev/null", kPlain), VOS_OK);
        EXPECT_EQ(statusOf("no-such-command-here 2> /dev/null"), 127 << 8);
    });
}

TEST(Shell, AStatusThatNobodyWantsMayBeNull) {
    run([] { EXPECT_EQ(vosSystem2("exit 3", kPlain, nullptr), VOS_OK); });
}

TEST(Shell, ANullCommandIsRefusedWithoutAnyCall) {
    const Outcome outcome = run([] {
        int32_t status = 77;
        EXPECT_THAT(Faults::record([&] {
                        EXPECT_EQ(vosSystem(nullptr, kPlain), VOS_ERR_PARAM);
                        EXPECT_EQ(vosSystem2(nullptr, kInteractive, &status), VOS_ERR_PARAM);
                        EXPECT_EQ(vosSystemNoWait(nullptr), VOS_ERR_PARAM);
                    }),
                    IsEmpty());
        EXPECT_EQ(status, 77);
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(Shell, TheStepsComeInTheirOrder) {
    run([] {
        const StandardInputTerminal terminal;
        EXPECT_THAT(Faults::record([] { vosSystem("true", kInteractive); }),
                    ElementsAre("sigaction", "sigaction", "sigaction", "tcgetattr", "fork", "wait4", "sigaction",
                                "sigaction", "sigaction", "tcflush", "tcsetattr"));
        EXPECT_THAT(Faults::record([] { vosSystemNoWait("true"); }),
                    ElementsAre("sigaction", "sigaction", "sigaction", "tcgetattr", "fork", "sigaction", "sigaction",
                                "sigaction", "tcflush", "tcsetattr"));
    });
}

TEST(Shell, KeyboardSignalsReachTheCommandOnly) {
    run([] {
        signal(SIGINT, SIG_DFL);
        signal(SIGQUIT, SIG_DFL);
        EXPECT_EQ(statusOf("kill -INT $PPID; kill -QUIT $PPID; kill -INT $$"), SIGINT);
        signal(SIGINT, SIG_IGN);
        signal(SIGQUIT, SIG_IGN);
        EXPECT_EQ(statusOf("kill -INT $$"), SIGINT);
        EXPECT_EQ(statusOf("kill -QUIT $$"), SIGQUIT);
    });
}

TEST(Shell, TheThreeDispositionsComeBackAsTheyWere) {
    run([] {
        for (const int number : {SIGINT, SIGQUIT, SIGCHLD}) handle(number);
        EXPECT_EQ(statusOf("exit 3"), 768);
        EXPECT_EQ(vosSystemNoWait("true"), VOS_OK);
        for (const int number : {SIGINT, SIGQUIT, SIGCHLD}) expectHandlerStillThere(number);
        raise(SIGINT);
        EXPECT_EQ(handled, SIGINT);
        EXPECT_EQ(handledCode, SI_TKILL);
    });
}

TEST(Shell, ACallerThatIgnoresItsChildrenStillGetsTheStatus) {
    run([] {
        vosProcessSignalDef();
        EXPECT_EQ(statusOf("exit 3"), 768);
        EXPECT_EQ(dispositionOf(SIGCHLD).sa_handler, SIG_IGN);
    });
}

TEST(Shell, InteractiveModeMakesTheTerminalSignalAndEcho) {
    run([] {
        const StandardInputTerminal terminal;
        quietTerminal();
        const termios before = StandardInputTerminal::settings();
        EXPECT_EQ(vosSystem(kTellSettings, kInteractive), VOS_OK);
        EXPECT_THAT(contents("/tmp/settings"), testing::ContainsRegex("[^-]isig"));
        EXPECT_THAT(contents("/tmp/settings"), testing::ContainsRegex("[^-]echo "));
        EXPECT_TRUE(sameSettings(StandardInputTerminal::settings(), before));
    });
}

TEST(Shell, PlainModeLeavesTheTerminalToTheCommandAsItIs) {
    run([] {
        const StandardInputTerminal terminal;
        quietTerminal();
        for (const uint32_t mode : {kPlain, 2U, 0xFFFFFFFFU}) {
            EXPECT_EQ(vosSystem(kTellSettings, mode), VOS_OK);
            EXPECT_THAT(contents("/tmp/settings"), testing::ContainsRegex("-isig"));
            EXPECT_THAT(contents("/tmp/settings"), testing::ContainsRegex("-echo "));
        }
    });
}

TEST(Shell, WhatACommandDoesToTheTerminalIsUndone) {
    run([] {
        const StandardInputTerminal terminal;
        const termios before = StandardInputTerminal::settings();
        EXPECT_EQ(vosSystem("stty raw -echo", kInteractive), VOS_OK);
        EXPECT_TRUE(sameSettings(StandardInputTerminal::settings(), before));
    });
}

TEST(Shell, WhatWasTypedAheadIsDiscarded) {
    run([] {
        const StandardInputTerminal terminal;
        termios characters = StandardInputTerminal::settings();
        characters.c_lflag &= ~static_cast<tcflag_t>(ICANON);
        StandardInputTerminal::set(characters);
        terminal.typeAhead("typed ahead");
        EXPECT_EQ(vosSystem("true", kPlain), VOS_OK);
        EXPECT_EQ(StandardInputTerminal::typed(), 0);
        terminal.typeAhead("once more");
        EXPECT_EQ(vosSystemNoWait("true"), VOS_OK);
        EXPECT_EQ(StandardInputTerminal::typed(), 0);
    });
}

TEST(Shell, AnInteractiveCommandDoesNotReadWhatWasTypedBeforeIt) {
    run([] {
        const StandardInputTerminal terminal;
        termios characters = StandardInputTerminal::settings();
        characters.c_lflag &= ~static_cast<tcflag_t>(ICANON);
        characters.c_cc[VMIN] = 0;
        StandardInputTerminal::set(characters);
        terminal.typeAhead("typed ahead");
        EXPECT_EQ(vosSystem("cat > /tmp/seen", kInteractive), VOS_OK);
        EXPECT_EQ(contents("/tmp/seen"), "");
        terminal.typeAhead("typed ahead");
        EXPECT_EQ(vosSystem("cat > /tmp/seen", kPlain), VOS_OK);
        EXPECT_EQ(contents("/tmp/seen"), "typed ahead");
    });
}

TEST(Shell, WithoutWaitingTheCallReturnsWhileTheCommandRuns) {
    run([] {
        std::filesystem::create_directory("/tmp/d");
        ASSERT_EQ(mkfifo("/tmp/d/gate", 0600), 0);
        EXPECT_EQ(vosSystemNoWait("read line < /tmp/d/gate; exit 3"), VOS_OK);
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), 0) << "the command has not ended";
        std::ofstream{"/tmp/d/gate"} << "go\n";
        int status = 0;
        EXPECT_GT(wait(&status), 0) << "the child is the caller's to reap";
        EXPECT_EQ(status, 768);
    });
}

TEST(Shell, AShellReadsItsCommandsFromStandardInput) {
    const Outcome outcome = run([] {
        FILE *const commands = fopen("/tmp/commands", "w");
        fputs("echo from the shell\nexit 3\necho not reached\n", commands);
        fclose(commands);
        ASSERT_NE(freopen("/tmp/commands", "r", stdin), nullptr);
        vosShell();
    });
    EXPECT_EQ(outcome.output, "from the shell\n");
}

TEST(Shell, AShellOnATerminalIsTypedInto) {
    const Outcome outcome = run([] {
        const StandardInputTerminal terminal;
        std::thread typist([&] {
            /* What is typed before the shell has taken the child's place would be discarded. */
            EXPECT_TRUE(eventually(shellRuns));
            terminal.type("echo typed > /tmp/typed; exit\n");
        });
        vosShell();
        typist.join();
        EXPECT_EQ(contents("/tmp/typed"), "typed\n");
    });
    EXPECT_TRUE(outcome.exited(0));
}

TEST(Shell, EveryFailingCallIsPassedOnAndTheDispositionsComeBack) {
    const auto prepare = [] {
        for (const int number : {SIGINT, SIGQUIT, SIGCHLD}) handle(number);
    };
    const auto attempts = failEachCall(prepare, [] {
        errno = 0;
        const int32_t result = vosSystem("true", kInteractive);
        EXPECT_EQ(errno, result == VOS_OK ? errno : EIO);
        return result;
    });
    expectNothingKept(attempts);
    EXPECT_EQ(at(attempts, "fork#1").result, VOS_ERROR);
    EXPECT_EQ(at(attempts, "wait4#1").result, VOS_ERROR);
    for (const Attempt &each : attempts) {
        EXPECT_THAT(each.messages, IsEmpty()) << describe(each.point);
        if (each.point.call != "fork" && each.point.call != "wait4") {
            EXPECT_EQ(each.result, VOS_OK) << describe(each.point);
        }
    }
}

TEST(Shell, WithoutWaitingEveryFailingCallIsPassedOn) {
    const auto attempts = failEachCall([] {}, [] { return vosSystemNoWait("true"); });
    expectNothingKept(attempts);
    for (const Attempt &each : attempts)
        EXPECT_EQ(each.result, each.point.call == "fork" ? VOS_ERROR : VOS_OK) << describe(each.point);
}

TEST(Shell, AFailedForkPutsTheSignalsBackAndLeavesTheTerminalAlone) {
    run([] {
        const StandardInputTerminal terminal;
        handle(SIGINT);
        Faults::arm({.call = "fork", .error = EAGAIN});
        EXPECT_THAT(Faults::record([] { EXPECT_EQ(vosSystem("true", kInteractive), VOS_ERROR); }),
                    ElementsAre("sigaction", "sigaction", "sigaction", "tcgetattr", "fork", "sigaction", "sigaction",
                                "sigaction"));
        EXPECT_EQ(errno, EAGAIN);
        EXPECT_TRUE(Faults::disarm());
        expectHandlerStillThere(SIGINT);
    });
}

TEST(Shell, AFailedWaitStillPutsEverythingBack) {
    run([] {
        const StandardInputTerminal terminal;
        const termios before = StandardInputTerminal::settings();
        handle(SIGINT);
        Faults::arm({.call = "wait4", .error = EINTR});
        int32_t status = 77;
        EXPECT_EQ(vosSystem2("stty raw", kPlain, &status), VOS_ERROR);
        EXPECT_EQ(errno, EINTR);
        EXPECT_EQ(status, 77);
        EXPECT_TRUE(Faults::disarm());
        expectHandlerStillThere(SIGINT);
        EXPECT_GT(wait(nullptr), 0);
        StandardInputTerminal::set(before);
    });
}

TEST(Shell, AShellThatCannotBeStartedEndsWith127) {
    run([] {
        Faults::arm({.call = "execl", .error = ENOENT});
        EXPECT_EQ(statusOf("true"), 127 << 8);
    });
}

TEST(Shell, AChildWhoseTerminalCallsFailStillRunsTheCommand) {
    run([] {
        const StandardInputTerminal terminal;
        quietTerminal();
        for (const char *const call : {"tcgetattr", "tcsetattr", "tcflush"}) {
            Faults::arm({.call = call, .occurrence = strcmp(call, "tcgetattr") == 0 ? 2 : 1});
            EXPECT_EQ(vosSystem2(kTellSettings, kInteractive, nullptr), VOS_OK);
            Faults::disarm();
            const bool flushed = strcmp(call, "tcflush") == 0;
            EXPECT_THAT(contents("/tmp/settings"), testing::ContainsRegex(flushed ? "[^-]isig" : "-isig")) << call;
        }
    });
}

TEST(Shell, SettingsThatCouldNotBeReadAreNotApplied) {
    run([] {
        const StandardInputTerminal terminal;
        Faults::arm({.call = "tcgetattr"});
        EXPECT_THAT(Faults::record([] { vosSystem("true", kPlain); }),
                    ElementsAre("sigaction", "sigaction", "sigaction", "tcgetattr", "fork", "wait4", "sigaction",
                                "sigaction", "sigaction", "tcflush"));
        EXPECT_TRUE(Faults::disarm());
    });
}

TEST(Reboot, AnyOtherModeOnlyLeavesTheMarker) {
    run([] {
        harmlessReboot();
        for (const uint32_t mode : {0U, 2U, 0xFFFFFFFFU}) {
            std::filesystem::remove("/flash/reboot");
            vosReboot(mode);
            EXPECT_TRUE(std::filesystem::exists("/flash/reboot"));
            EXPECT_FALSE(std::filesystem::exists("/tmp/rebooted"));
        }
        EXPECT_EQ(std::filesystem::file_size("/flash/reboot"), 0U);
    });
}

TEST(Reboot, ModeOneLeavesTheMarkerAndRunsTheProgram) {
    const Outcome outcome = run([] {
        umask(0022);
        harmlessReboot();
        vosReboot(1);
        EXPECT_EQ(contents("/tmp/rebooted"), "/tmp/bin/reboot\n");
        struct stat marker {};
        ASSERT_EQ(stat("/flash/reboot", &marker), 0);
        EXPECT_EQ(marker.st_mode & 07777U, 0644U);
    });
    EXPECT_EQ(outcome.output, "");
}

TEST(Reboot, AMarkerThatIsThereIsNotTruncated) {
    run([] {
        std::ofstream{"/flash/reboot"} << "kept";
        vosReboot(0);
        EXPECT_EQ(contents("/flash/reboot"), "kept");
    });
}

TEST(Reboot, WithoutAMarkerTheProgramStillRuns) {
    const auto attempts = failEachCall(harmlessReboot, [] {
        std::filesystem::remove("/tmp/rebooted");
        vosReboot(1);
        return std::filesystem::exists("/tmp/rebooted") ? 1L : 0L;
    });
    expectNothingKept(attempts);
    for (const Attempt &each : attempts) {
        EXPECT_THAT(each.messages, IsEmpty());
        if (each.point.call != "fork" && each.point.call != "wait4") {
            EXPECT_EQ(each.result, 1) << describe(each.point);
        }
    }
    EXPECT_EQ(at(attempts, "open#1").result, 1);
    EXPECT_EQ(at(attempts, "fork#1").result, 0);
}

TEST(TerminalControl, TheKeyboardIsShutOut) {
    run([] {
        const StandardInputTerminal terminal;
        for (const int number : {SIGQUIT, SIGINT, SIGCHLD, SIGPIPE}) signal(number, SIG_DFL);
        termios expected = StandardInputTerminal::settings();
        EXPECT_NE(expected.c_lflag & ISIG, 0U);
        expected.c_lflag &= ~static_cast<tcflag_t>(ISIG);
        expected.c_cc[VSTART] = 0;
        expected.c_cc[VSTOP] = 0;
        EXPECT_EQ(vosTerminalCtrlClear(), VOS_OK);
        EXPECT_TRUE(sameSettings(StandardInputTerminal::settings(), expected));
        for (const int number : {SIGQUIT, SIGINT, SIGCHLD, SIGPIPE})
            EXPECT_EQ(dispositionOf(number).sa_handler, SIG_IGN) << number;
    });
}

TEST(TerminalControl, WhatWasTypedIsDiscarded) {
    run([] {
        const StandardInputTerminal terminal;
        termios characters = StandardInputTerminal::settings();
        characters.c_lflag &= ~static_cast<tcflag_t>(ICANON);
        StandardInputTerminal::set(characters);
        terminal.typeAhead("typed");
        EXPECT_EQ(vosTerminalCtrlClear(), VOS_OK);
        EXPECT_EQ(StandardInputTerminal::typed(), 0);
    });
}

TEST(TerminalControl, StandardInputNeedNotBeATerminal) {
    const auto attempts = failEachCall([] { ASSERT_NE(freopen("/dev/null", "r", stdin), nullptr); },
                                       [] { return vosTerminalCtrlClear(); });
    for (const Attempt &each : attempts) {
        EXPECT_EQ(each.result, VOS_OK) << describe(each.point);
        EXPECT_THAT(each.messages, IsEmpty());
    }
}
