/* SPDX-License-Identifier: MIT */
#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
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

/* The calls of an action without those that only guard the library's own data. */
std::vector<std::string> stepsOf(const std::function<void()> &action) {
    std::vector<std::string> calls = Faults::record(action);
    std::erase_if(calls, [](const std::string &call) { return call.starts_with("pthread_mutex_"); });
    return calls;
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

/* Switches signals and echo of the terminal off, as a full-screen program does. */
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

/* How many children a process has, all of them or those in one state. */
int childrenOf(pid_t parent, char state = 0) {
    const std::string wanted = " " + std::to_string(parent) + " ";
    int count = 0;
    for (const auto &each : std::filesystem::directory_iterator("/proc")) {
        const std::string stat = contents(each.path() / "stat");
        const std::size_t name = stat.rfind(") ");
        if (name == std::string::npos || stat.compare(name + 3, wanted.size(), wanted) != 0) continue;
        if (state == 0 || stat[name + 2] == state) ++count;
    }
    return count;
}

/* A child that ends at once with 7. */
pid_t endAtOnce() {
    const pid_t child = fork();
    if (child == 0) _exit(7);
    return child;
}

/* A child that ends with 7 while a command runs: the command waits until the child is a zombie. */
pid_t endDuringCommand() {
    std::array<int, 2> gate{};
    if (pipe2(gate.data(), O_CLOEXEC) != 0) abort();
    const pid_t child = fork();
    if (child == 0) {
        char go = 0;
        _exit(read(gate[0], &go, 1) == 1 ? 7 : 8);
    }
    const std::string command = "echo >&" + std::to_string(gate[1]) + "; until grep -q '(.*) Z' /proc/" +
                                std::to_string(child) + "/stat; do :; done";
    fcntl(gate[1], F_SETFD, 0);
    EXPECT_EQ(vosSystem(command.c_str(), kPlain), VOS_OK);
    for (const int end : gate) close(end);
    return child;
}

/* Whether an action ends in a process that is in the background of its controlling terminal. */
bool inBackgroundOf(const StandardInputTerminal &terminal, const std::function<void()> &action) {
    const pid_t session = fork();
    if (session != 0) {
        int status = 0;
        return waitpid(session, &status, 0) == session && status == 0;
    }
    for (const int number : {SIGINT, SIGQUIT, SIGCHLD, SIGTTOU}) signal(number, SIG_DFL);
    if (setsid() < 0 || ioctl(STDIN_FILENO, TIOCSCTTY, 1) != 0) _exit(2);
    const pid_t background = fork();
    if (background == 0) {
        setpgid(0, 0);
        action();
        _exit(0);
    }
    setpgid(background, background);
    (void)terminal;
    int status = 0;
    const bool waited = waitpid(background, &status, WUNTRACED) == background;
    if (WIFSTOPPED(status)) kill(background, SIGKILL);
    _exit(waited && status == 0 ? 0 : 1);
}

/* Replaces the shell, which would change its mask. SIGUSR2 must be blocked, SIGUSR1 ignored, and SIGALRM must have no
 * handler. */
int exitThreeWhenSignalsAreRight(const char * /*path*/, const char * /*first*/, ...) {
    sigset_t inherited;
    sigemptyset(&inherited);
    pthread_sigmask(SIG_SETMASK, nullptr, &inherited);
    const bool right = sigismember(&inherited, SIGUSR2) == 1 && sigismember(&inherited, SIGTERM) == 0 &&
                       dispositionOf(SIGUSR1).sa_handler == SIG_IGN && dispositionOf(SIGALRM).sa_handler == SIG_DFL &&
                       dispositionOf(SIGCHLD).sa_handler == SIG_DFL;
    _exit(right ? 3 : 4);
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

TEST(Shell, TheStatusPointerMayBeNull) {
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
        EXPECT_THAT(stepsOf([] { vosSystem("true", kInteractive); }),
                    ElementsAre("sigaction", "sigaction", "sigaction", "tcgetattr", "fork", "wait4", "sigaction",
                                "sigaction", "sigaction", "tcflush", "tcsetattr"));
        EXPECT_THAT(stepsOf([] { vosSystemNoWait("true"); }),
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

TEST(Shell, TheThreeDispositionsAreRestored) {
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

TEST(Shell, ChildrenThatEndWhileACommandRunsAreReapedWhereSigchldIsIgnored) {
    run([] {
        vosProcessSignalDef();
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(vosSystemNoWait(":"), VOS_OK);
            endAtOnce();
        }
        EXPECT_EQ(statusOf("sleep 0.3; exit 3"), 768) << "the three others end meanwhile";
        EXPECT_TRUE(eventually([] { return childrenOf(getpid(), 'Z') == 0; }));
        EXPECT_EQ(childrenOf(getpid()), 0);
    });
}

TEST(Shell, ABurstOfCommandsWithoutWaitingLeavesNoZombie) {
    run([] {
        vosProcessSignalDef();
        for (int i = 0; i < 50; ++i) EXPECT_EQ(vosSystemNoWait(":"), VOS_OK);
        EXPECT_TRUE(eventually([] { return childrenOf(getpid()) == 0; }));
    });
}

TEST(Shell, ChildrenAreReapedAlsoUnderNoCldWait) {
    run([] {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        action.sa_flags = SA_NOCLDWAIT | SA_RESTART;
        sigaction(SIGCHLD, &action, nullptr);
        endDuringCommand();
        EXPECT_EQ(childrenOf(getpid()), 0);
    });
}

TEST(Shell, ChildrenOfACallerThatWaitsForThemAreNotReaped) {
    run([] {
        for (const sighandler_t handler : {SIG_DFL, static_cast<sighandler_t>([](int) {})}) {
            struct sigaction action = {};
            action.sa_handler = handler;
            action.sa_flags = SA_RESTART;
            sigaction(SIGCHLD, &action, nullptr);
            const pid_t child = endDuringCommand();
            int status = 0;
            EXPECT_EQ(waitpid(child, &status, 0), child);
            EXPECT_EQ(status, 7 << 8);
        }
    });
}

TEST(Shell, ReapingKeepsTheErrnoOfAFailure) {
    run([] {
        vosProcessSignalDef();
        Faults::arm({.call = "wait4", .error = EINTR});
        EXPECT_EQ(vosSystem(":", kPlain), VOS_ERROR);
        EXPECT_EQ(errno, EINTR); /* without a child left, the last waitpid() fails with ECHILD */
        EXPECT_TRUE(Faults::disarm());
    });
}

TEST(Shell, CommandsOfSeveralThreadsEachGetTheirOwnStatusAndLeaveNoZombie) {
    run([] {
        vosProcessSignalDef();
        std::vector<std::thread> threads;
        for (int thread = 1; thread <= 4; ++thread)
            threads.emplace_back([thread] {
                const std::string command = "exit " + std::to_string(thread);
                for (int i = 0; i < 25; ++i) {
                    EXPECT_EQ(statusOf(command.c_str()), thread << 8);
                    EXPECT_EQ(vosSystemNoWait(":"), VOS_OK);
                }
            });
        for (std::thread &each : threads) each.join();
        EXPECT_EQ(dispositionOf(SIGCHLD).sa_handler, SIG_IGN);
        EXPECT_TRUE(eventually([] { return childrenOf(getpid()) == 0; }));
    });
}

TEST(Shell, TheLastOfSeveralCommandsRestoresTheDispositions) {
    run([] {
        for (const int number : {SIGINT, SIGQUIT, SIGCHLD}) handle(number);
        for (const char *const gate : {"/tmp/first", "/tmp/second"}) ASSERT_EQ(mkfifo(gate, 0600), 0);
        const auto runUntil = [](const std::string &gate) {
            return std::thread([gate] {
                const std::string command = "echo > " + gate + "Runs; read line < " + gate + "; exit 3";
                EXPECT_EQ(statusOf(command.c_str()), 768);
            });
        };
        std::thread first = runUntil("/tmp/first");
        EXPECT_TRUE(eventually([] { return contents("/tmp/firstRuns") == "\n"; }));
        std::thread second = runUntil("/tmp/second");
        EXPECT_TRUE(eventually([] { return contents("/tmp/secondRuns") == "\n"; }));
        std::ofstream{"/tmp/first"} << "go\n";
        first.join();
        EXPECT_EQ(dispositionOf(SIGINT).sa_handler, SIG_IGN) << "the second command still runs";
        EXPECT_EQ(dispositionOf(SIGCHLD).sa_handler, SIG_DFL);
        std::ofstream{"/tmp/second"} << "go\n";
        second.join();
        for (const int number : {SIGINT, SIGQUIT, SIGCHLD}) expectHandlerStillThere(number);
    });
}

TEST(Shell, AForkWhileOtherThreadsRunCommandsGivesAChildThatRunsCommands) {
    run([] {
        vosProcessSignalDef();
        std::atomic<bool> stop = false;
        std::vector<std::thread> threads;
        for (int i = 0; i < 2; ++i)
            threads.emplace_back([&] {
                while (!stop) vosSystemNoWait(":");
            });
        for (int i = 0; i < 100; ++i) {
            const pid_t child = fork();
            if (child == 0) {
                alarm(static_cast<unsigned>(deadline().count() / 1000)); /* instead of waiting for ever */
                int32_t status = 0;
                const bool right = vosSystem2("exit 3", kPlain, &status) == VOS_OK && status == 768;
                _exit(right ? 0 : 1);
            }
            int status = 0;
            if (waitpid(child, &status, 0) == child) { /* else the other threads' commands have reaped it */
                EXPECT_EQ(status, 0);
            }
        }
        stop = true;
        for (std::thread &each : threads) each.join();
    });
}

TEST(Shell, AThreadThatIsCancelledWhileItWaitsRestoresEverything) {
    run([] {
        vosProcessSignalDef();
        const StandardInputTerminal terminal;
        const termios before = StandardInputTerminal::settings();
        ASSERT_EQ(mkfifo("/tmp/gate", 0600), 0);
        pthread_t thread{};
        const auto command = [](void *) -> void * {
            vosSystem("stty raw; echo > /tmp/begun; read line < /tmp/gate", kPlain);
            return nullptr;
        };
        ASSERT_EQ(pthread_create(&thread, nullptr, command, nullptr), 0);
        EXPECT_TRUE(eventually([] { return contents("/tmp/begun") == "\n"; }));
        void *result = nullptr;
        pthread_cancel(thread);
        ASSERT_EQ(pthread_join(thread, &result), 0);
        EXPECT_EQ(result, PTHREAD_CANCELED);
        for (const int number : {SIGINT, SIGQUIT, SIGCHLD}) EXPECT_EQ(dispositionOf(number).sa_handler, SIG_IGN);
        EXPECT_TRUE(sameSettings(StandardInputTerminal::settings(), before));
        EXPECT_EQ(statusOf("exit 3"), 768) << "commands still run";
        EXPECT_EQ(childrenOf(getpid()), 1) << "the cancelled one's command runs on";
        std::ofstream{"/tmp/gate"} << "go\n";
        EXPECT_TRUE(eventually([] { return childrenOf(getpid()) == 0; }));
    });
}

TEST(Shell, ASignalHandlerMayRunACommandWhileOneRuns) {
    run([] {
        vosProcessSignalDef();
        static int32_t nested = -1;
        struct sigaction action = {};
        action.sa_handler = [](int) {
            const int before = errno; /* as every handler must */
            vosSystem2("exit 4", kPlain, &nested);
            errno = before;
        };
        action.sa_flags = SA_RESTART;
        sigaction(SIGUSR1, &action, nullptr);
        EXPECT_EQ(statusOf("kill -USR1 $PPID; sleep 0.2; exit 3"), 768);
        EXPECT_EQ(nested, 4 << 8);
        EXPECT_EQ(dispositionOf(SIGCHLD).sa_handler, SIG_IGN);
    });
}

TEST(Shell, ASignalToTheChildBeforeItsProgramRunsNoHandler) {
    run([] {
        static char *const ran =
            static_cast<char *>(mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
        static const pid_t caller = getpid();
        signal(SIGUSR1, [](int) { ran[getpid() == caller ? 0 : 1] = 1; });
        substitute(
            "fork", +[] {
                const pid_t child = fork();
                if (child == 0) raise(SIGUSR1);
                return child;
            });
        EXPECT_EQ(statusOf("exit 3"), SIGUSR1) << "the signal has its default action in the child";
        EXPECT_EQ(ran[1], 0);
    });
}

TEST(Shell, TheCommandInheritsTheCallersSignalMaskAndItsIgnoredSignals) {
    run([] {
        signal(SIGUSR1, SIG_IGN);
        signal(SIGALRM, [](int) {});
        sigset_t mask;
        sigemptyset(&mask);
        sigaddset(&mask, SIGUSR2);
        pthread_sigmask(SIG_SETMASK, &mask, nullptr);
        substitute("execl", exitThreeWhenSignalsAreRight);
        EXPECT_EQ(statusOf("true"), 768);
        sigset_t now;
        pthread_sigmask(SIG_SETMASK, nullptr, &now);
        EXPECT_EQ(sigismember(&now, SIGUSR2), 1);
        EXPECT_EQ(sigismember(&now, SIGTERM), 0);
    });
}

TEST(Shell, ABackgroundProcessIsNotStoppedByItsTerminal) {
    run([] {
        const StandardInputTerminal terminal;
        EXPECT_TRUE(inBackgroundOf(terminal, [] { vosSystem("true", kInteractive); }));
        EXPECT_TRUE(inBackgroundOf(terminal, [] { vosSystemNoWait("true"); }));
        EXPECT_TRUE(inBackgroundOf(terminal, [] { vosTerminalCtrlClear(); }));
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

TEST(Shell, PlainModeDoesNotChangeTheTerminalForTheCommand) {
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

TEST(Shell, ChangesThatACommandMakesToTheTerminalAreUndone) {
    run([] {
        const StandardInputTerminal terminal;
        const termios before = StandardInputTerminal::settings();
        EXPECT_EQ(vosSystem("stty raw -echo", kInteractive), VOS_OK);
        EXPECT_TRUE(sameSettings(StandardInputTerminal::settings(), before));
    });
}

TEST(Shell, InputThatWasTypedAheadIsDiscarded) {
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

TEST(Shell, AShellOnATerminalReadsWhatIsTyped) {
    const Outcome outcome = run([] {
        const StandardInputTerminal terminal;
        std::thread typist([&] {
            /* Text that is typed before the shell runs would be discarded. */
            EXPECT_TRUE(eventually(shellRuns));
            terminal.type("echo typed > /tmp/typed; exit\n");
        });
        vosShell();
        typist.join();
        EXPECT_EQ(contents("/tmp/typed"), "typed\n");
    });
    EXPECT_TRUE(outcome.exited(0));
}

TEST(Shell, EveryFailingCallIsReturnedAndTheDispositionsAreRestored) {
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

TEST(Shell, WithoutWaitingEveryFailingCallIsReturned) {
    const auto attempts = failEachCall([] {}, [] { return vosSystemNoWait("true"); });
    expectNothingKept(attempts);
    for (const Attempt &each : attempts)
        EXPECT_EQ(each.result, each.point.call == "fork" ? VOS_ERROR : VOS_OK) << describe(each.point);
}

TEST(Shell, AFailedForkRestoresTheSignalsAndDoesNotChangeTheTerminal) {
    run([] {
        const StandardInputTerminal terminal;
        handle(SIGINT);
        Faults::arm({.call = "fork", .error = EAGAIN});
        EXPECT_THAT(stepsOf([] { EXPECT_EQ(vosSystem("true", kInteractive), VOS_ERROR); }),
                    ElementsAre("sigaction", "sigaction", "sigaction", "tcgetattr", "fork", "sigaction", "sigaction",
                                "sigaction"));
        EXPECT_EQ(errno, EAGAIN);
        EXPECT_TRUE(Faults::disarm());
        expectHandlerStillThere(SIGINT);
    });
}

TEST(Shell, AFailedWaitStillRestoresEverything) {
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
        EXPECT_THAT(stepsOf([] { vosSystem("true", kPlain); }),
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

TEST(Reboot, TheMarkerIsClosedBeforeTheRebootBegins) {
    run([] {
        harmlessReboot();
        EXPECT_THAT(stepsOf([] { vosReboot(1); }),
                    testing::ElementsAreArray({"open", "close", "sigaction", "sigaction", "sigaction", "tcgetattr",
                                               "fork", "wait4", "sigaction", "sigaction", "sigaction", "tcflush"}));
        std::ofstream{"/tmp/bin/reboot"} << "#!/bin/sh\nls -l /proc/$PPID/fd /proc/" << getpid() << "/fd > /tmp/open\n";
        vosReboot(1);
        EXPECT_THAT(contents("/tmp/open"), testing::HasSubstr("0 ->"));
        EXPECT_THAT(contents("/tmp/open"), testing::Not(testing::HasSubstr("/flash")));
    });
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

TEST(TerminalControl, KeyboardSignalsAreSwitchedOffAndIgnored) {
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

TEST(TerminalControl, TypedInputIsDiscarded) {
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
