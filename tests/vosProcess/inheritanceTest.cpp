/* SPDX-License-Identifier: MIT */
/* What a started program inherits, and the effect of a signal while it is being started. */
#include "support/inheritance.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <thread>

#include "creation.h"
#include "support/substitute.h"

using namespace vostest;
using testing::AnyOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

namespace {

/* The descriptors of this process that a program would inherit. */
std::set<int> inheritable() {
    std::set<int> all;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int fd = std::stoi(entry.path().filename());
        const int flags = fcntl(fd, F_GETFD);
        if (flags != -1 && (flags & FD_CLOEXEC) == 0) all.insert(fd);
    }
    return all;
}

void block(int number) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, number);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

void sayWhoHandles(int /*number*/) {
    std::array<char, 32> text{};
    const int length = snprintf(text.data(), text.size(), "\nhandled by %d\n", getpid());
    if (write(STDOUT_FILENO, text.data(), static_cast<std::size_t>(length)) == -1) abort();
}

void terminate(int32_t /*iReserved*/) { sayWhoHandles(SIGTERM); }

/* Replaces the two exec calls: SIGTERM arrives in the child as late as possible. */
[[noreturn]] void signalInsteadOfProgram() {
    raise(SIGTERM);
    dprintf(STDOUT_FILENO, "\nsurvived\n");
    _exit(1);
}
int signalInsteadOfExecl(const char * /*path*/, const char * /*name*/, ...) { signalInsteadOfProgram(); }
int signalInsteadOfExecv(const char * /*path*/, char *const * /*vector*/) { signalInsteadOfProgram(); }

/* Replaces sigaction(): SIGTERM arrives in the child before the library has set its first disposition. */
pid_t creator = 0;
int signalFirst(int number, const struct sigaction *to, struct sigaction *from) {
    if (getpid() != creator && number == 1) raise(SIGTERM);
    return sigaction(number, to, from);
}

/* For each way of starting, `arrive` makes SIGTERM arrive in the child. The procedure must run in no child, and must
 * still run at a SIGTERM to the creator. */
void expectTheProcedureRunsInTheCreatorOnly(const Body &arrive) {
    for (const WayToStart &way : waysToStart()) {
        const Outcome outcome = run([&] {
            creator = getpid();
            vosProcessRegTerminateProc(terminate);
            arrive();
            way.start("/bin/true");
            EXPECT_EQ(g_bProcTermProcRunned, 0u) << way.name;
            raise(SIGTERM);
            _exit(0);
        });
        EXPECT_THAT(outcome.output, Not(HasSubstr("survived"))) << way.name;
        const std::string handled = "handled by ";
        const std::size_t first = outcome.output.find(handled);
        EXPECT_EQ(first, outcome.output.find(handled + std::to_string(outcome.pid))) << way.name << outcome.output;
        EXPECT_EQ(first, outcome.output.rfind(handled)) << way.name << outcome.output;
    }
}

/* The shell may unblock signals, so a program that it starts has the same signals blocked or fewer. */
void expectBlocked(const WayToStart &way, const Inheritance &found, const std::set<int> &expected) {
    if (way.throughShell)
        EXPECT_THAT(found.blocked, AnyOf(expected, std::set<int>{})) << way.name;
    else
        EXPECT_EQ(found.blocked, expected) << way.name;
}

std::atomic<bool> ended = false;

/* Starts programs, one after the other, until the process gets SIGTERM. */
[[noreturn]] void startUntilTold(const WayToStart &way) {
    setpgid(0, 0);
    vosProcessSignalDef();
    vosDebugConfig(0); /* whether the programs become real-time does not matter */
    vosProcessRegTerminateProc([](int32_t) {
        sayWhoHandles(SIGTERM);
        ended = true;
    });
    ready();
    while (!ended) way.start("/bin/true");
    _exit(0);
}

}  // namespace

TEST(Inheritance, TheEnvironmentAndTheDirectoryAreTheCreators) {
    NEEDS(kOwnProgram);
    for (const WayToStart &way : waysToStart()) {
        const Inheritance found = inheritedBy(way, [] {
            setenv("VOS_TEST_VARIABLE", "a value", 1);
            ASSERT_EQ(mkdir("/tmp/directory", 0755), 0);
            ASSERT_EQ(chdir("/tmp/directory"), 0);
        });
        EXPECT_THAT(found.variables, Contains("VOS_TEST_VARIABLE=a value")) << way.name;
        EXPECT_EQ(found.directory, "/tmp/directory") << way.name;
        rmdir("/tmp/directory");
    }
}

TEST(Inheritance, OnlyDescriptorsWithoutCloseOnExecStayOpen) {
    NEEDS(kOwnProgram);
    for (const WayToStart &way : waysToStart()) {
        std::set<int> expected = inheritable();
        expected.insert(100);
        const Inheritance found = inheritedBy(way, [] {
            const int kept = open("/dev/null", O_RDONLY | O_CLOEXEC);
            EXPECT_EQ(dup2(kept, 100), 100);
            EXPECT_EQ(dup3(kept, 101, O_CLOEXEC), 101);
        });
        EXPECT_EQ(found.descriptors, expected) << way.name;
    }
}

TEST(Inheritance, OnlyTheSignalsThatTheCallingThreadBlocksStayBlocked) {
    NEEDS(kOwnProgram);
    for (const WayToStart &way : waysToStart()) {
        expectBlocked(way, inheritedBy(way, [] { block(SIGUSR1); }), {SIGUSR1});
        expectBlocked(way, inheritedBy(way, [] {}), {});
    }
}

TEST(Inheritance, OnlyTheCallingThreadsMaskCountsAndItIsTheSameAfterwards) {
    NEEDS(kOwnProgram);
    for (const WayToStart &way : waysToStart()) {
        const Inheritance found = inheritedBy(way, [&way] {
            std::thread([] { block(SIGUSR2); }).join();
            block(SIGUSR1);
            way.start("/bin/true");
            sigset_t now;
            pthread_sigmask(SIG_SETMASK, nullptr, &now);
            for (int number = 1; number < SIGRTMIN; ++number)
                EXPECT_EQ(sigismember(&now, number), number == SIGUSR1 ? 1 : 0) << number;
        });
        expectBlocked(way, found, {SIGUSR1});
    }
}

TEST(Inheritance, IgnoredSignalsStayIgnoredAndCaughtOnesHaveTheirDefault) {
    NEEDS(kOwnProgram);
    for (const WayToStart &way : waysToStart()) {
        const Inheritance found = inheritedBy(way, [] {
            for (int number = 1; number < NSIG; ++number) signal(number, SIG_DFL);
            vosProcessSignalDef();
            vosProcessRegTerminateProc(terminate);
            signal(SIGUSR1, SIG_IGN);
            signal(SIGUSR2, sayWhoHandles);
        });
        /* The registration catches SIGHUP. The child of the shell has the default action for the keyboard's signals. */
        const std::set<int> all{SIGQUIT, SIGINT, SIGCHLD, SIGPIPE, SIGUSR1};
        EXPECT_EQ(found.ignored, way.throughShell ? (std::set<int>{SIGPIPE, SIGUSR1}) : all) << way.name;
    }
}

/* Signals while a program is being started */

TEST(Start, ASignalInTheChildBeforeItsProgramRunsNoHandlerOfTheCreator) {
    expectTheProcedureRunsInTheCreatorOnly([] {
        substitute("execl", signalInsteadOfExecl);
        substitute("execv", signalInsteadOfExecv);
    });
}

TEST(Start, ASignalInTheChildBeforeItHasSetADispositionRunsNoHandlerOfTheCreator) {
    expectTheProcedureRunsInTheCreatorOnly([] { substitute("sigaction", signalFirst); });
}

/* The same with real timing: a process group gets SIGTERM while one of its processes starts programs. */
TEST(Start, ASigtermToTheGroupIsNeverLostAndRunsTheProcedureOnceInTheCreator) {
    NEEDS(kOwnProgram);
    for (const WayToStart &way : waysToStart())
        for (int trial = 0; trial < 15; ++trial) {
            Process process = start([&way] { startUntilTold(way); });
            process.awaitReady();
            usleep(static_cast<useconds_t>(trial) * 317); /* a different moment of a start in each trial */
            ASSERT_EQ(kill(-process.pid(), SIGTERM), 0);
            const Outcome outcome = process.finish();
            EXPECT_EQ(outcome.output, "\nhandled by " + std::to_string(outcome.pid) + "\n") << way.name;
        }
}
