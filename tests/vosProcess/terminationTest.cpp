/* SPDX-License-Identifier: MIT */
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "support/faults.h"
#include "vos.h"

using namespace vostest;

namespace {

void say(const char *text) { EXPECT_GT(write(STDOUT_FILENO, text, strlen(text)), 0); }

void procedureP(int32_t argument) { say(argument == 0 ? "p(0) " : "p(other) "); }
void procedureQ(int32_t argument) { say(argument == 0 ? "q(0) " : "q(other) "); }

struct sigaction dispositionOf(int number) {
    struct sigaction action {};
    EXPECT_EQ(sigaction(number, nullptr, &action), 0);
    return action;
}

bool ignored(int number) { return dispositionOf(number).sa_handler == SIG_IGN; }

}  // namespace

TEST(SignalDef, IgnoresTheFiveSignalsAndNoOther) {
    run([] {
        vosProcessSignalDef();
        for (const int number : {SIGQUIT, SIGINT, SIGCHLD, SIGPIPE, SIGHUP}) EXPECT_TRUE(ignored(number)) << number;
        for (const int number : {SIGTERM, SIGALRM, SIGUSR1, SIGUSR2})
            EXPECT_EQ(dispositionOf(number).sa_handler, SIG_DFL) << number;
    });
}

TEST(SignalDef, SetsThemInOrderAndAFailureIsIgnored) {
    run([] {
        const auto calls = Faults::record([] { vosProcessSignalDef(); });
        EXPECT_EQ(calls, std::vector<std::string>(5, "signal"));
        signal(SIGINT, SIG_DFL);
        signal(SIGCHLD, SIG_DFL);
        Faults::arm({.call = "signal", .occurrence = 2}); /* the second is SIGINT */
        vosProcessSignalDef();
        EXPECT_TRUE(Faults::disarm());
        EXPECT_FALSE(ignored(SIGINT));
        EXPECT_TRUE(ignored(SIGCHLD));
    });
}

TEST(SignalDef, EndedChildrenAreReapedByTheKernel) {
    run([] {
        vosProcessInit("parent");
        const pid_t child = fork();
        if (child == 0) _exit(0);
        EXPECT_EQ(waitpid(child, nullptr, 0), -1);
        EXPECT_EQ(errno, ECHILD);
    });
}

TEST(Termination, SigtermCallsTheProcedureOnceAndTheProcessGoesOn) {
    const Outcome outcome = run([] {
        EXPECT_EQ(vosProcessRegTerminateProc(procedureP), VOS_OK);
        EXPECT_EQ(g_bProcTermProcRunned, 0u);
        raise(SIGTERM);
        EXPECT_EQ(g_bProcTermProcRunned, 1u);
        raise(SIGTERM);
        say("alive ");
    });
    EXPECT_EQ(outcome.output, "p(0) alive ");
    EXPECT_TRUE(outcome.exited(0)) << "a later exit must not call the procedure again";
}

TEST(Termination, ASignalFromAnotherProcessDoesTheSame) {
    Process process = start([] {
        vosProcessRegTerminateProc(procedureP);
        ready();
        EXPECT_TRUE(eventually([] { return g_bProcTermProcRunned == 1; }));
    });
    process.awaitReady();
    process.send(SIGTERM);
    EXPECT_EQ(process.finish().output, "p(0) ");
}

TEST(Termination, SighupAndNormalExitRunItToo) {
    EXPECT_EQ(run([] {
                  vosProcessRegTerminateProc(procedureP);
                  raise(SIGHUP);
                  raise(SIGTERM);
              }).output,
              "p(0) ");
    EXPECT_EQ(run([] { vosProcessRegTerminateProc(procedureP); }).output, "p(0) ");
}

TEST(Termination, ItDoesNotRunOnImmediateExitAbortKillOrOtherSignals) {
    EXPECT_EQ(run([] {
                  vosProcessRegTerminateProc(procedureP);
                  _exit(0);
              }).output,
              "");
    for (const int number : {SIGABRT, SIGKILL, SIGUSR1}) {
        const Outcome outcome = run([&] {
            vosProcessRegTerminateProc(procedureP);
            signal(SIGABRT, SIG_DFL);
            raise(number);
        });
        EXPECT_EQ(outcome.output, "") << number;
        EXPECT_TRUE(outcome.killedBy(number));
    }
}

TEST(Termination, RegisteringPThenQCallsOnlyQAndNothingMoreAtExit) {
    const Outcome outcome = run([] {
        vosProcessRegTerminateProc(procedureP);
        vosProcessRegTerminateProc(procedureQ);
        raise(SIGTERM);
    });
    EXPECT_EQ(outcome.output, "q(0) ");
}

TEST(Termination, ANewRegistrationArmsAgain) {
    const Outcome outcome = run([] {
        vosProcessRegTerminateProc(procedureP);
        raise(SIGTERM);
        vosProcessRegTerminateProc(procedureP);
        EXPECT_EQ(g_bProcTermProcRunned, 0u);
        raise(SIGTERM);
    });
    EXPECT_EQ(outcome.output, "p(0) p(0) ");
}

TEST(Termination, ANullProcedureLeavesSigtermCaughtWithoutEffectAndExitRunsNothing) {
    const Outcome outcome = run([] {
        vosProcessRegTerminateProc(procedureP);
        vosProcessRegTerminateProc(nullptr);
        raise(SIGTERM);
        raise(SIGHUP);
        EXPECT_EQ(g_bProcTermProcRunned, 0u);
        say("alive ");
    });
    EXPECT_EQ(outcome.output, "alive ");
    EXPECT_TRUE(outcome.exited(0));
}

TEST(Termination, TheLastOfInitAndRegistrationDecidesAboutSighup) {
    run([] {
        vosProcessRegTerminateProc(nullptr);
        EXPECT_FALSE(ignored(SIGHUP));
        EXPECT_TRUE(ignored(SIGPIPE));
        vosProcessInit("x");
        EXPECT_TRUE(ignored(SIGHUP));
        vosProcessRegTerminateProc(nullptr);
        EXPECT_FALSE(ignored(SIGHUP));
    });
}

TEST(Termination, TheExitHandleMayBeCalledDirectlyAndRunsTheProcedureOnce) {
    const Outcome outcome = run([] {
        vosExitHandle();
        vosProcessRegTerminateProc(procedureP);
        vosExitHandle();
        vosExitHandle();
    });
    EXPECT_EQ(outcome.output, "p(0) ");
}

TEST(Termination, AProcedureThatIsInterruptedByASecondSignalIsNotStartedAgain) {
    const Outcome outcome = run([] {
        vosProcessRegTerminateProc([](int32_t) {
            say("begin ");
            raise(SIGHUP);
            say("end ");
        });
        raise(SIGTERM);
    });
    EXPECT_EQ(outcome.output, "begin end ");
}

TEST(Termination, EachFailingCallIsIgnored) {
    const auto attempts = failEachCall([] {}, [] { return vosProcessRegTerminateProc(nullptr); });
    std::vector<std::string> calls;
    for (const Attempt &each : attempts) {
        calls.push_back(describe(each.point));
        EXPECT_EQ(each.result, VOS_OK) << describe(each.point);
        EXPECT_EQ(each.outcome.output, "");
    }
    EXPECT_THAT(calls, testing::ElementsAre("signal#1", "signal#2", "signal#3", "atexit#1"));
    expectNothingKept(attempts);
}

TEST(Termination, WithoutTheExitHookASignalStillRunsTheProcedure) {
    const auto outputWith = [](bool signalled) {
        return failCall(
                   {.call = "atexit"}, [] {},
                   [signalled] {
                       vosProcessRegTerminateProc(procedureP);
                       if (signalled) raise(SIGTERM);
                       return 0L;
                   })
            .outcome.output;
    };
    EXPECT_EQ(outputWith(true), "p(0) ");
    EXPECT_EQ(outputWith(false), "") << "no hook, so nothing ran at exit";
}

TEST(Termination, TheInterruptedCodeFindsItsErrno) {
    run([] {
        vosProcessRegTerminateProc([](int32_t) { errno = EBADF; });
        errno = ENOENT;
        raise(SIGTERM);
        EXPECT_EQ(errno, ENOENT);
        EXPECT_EQ(g_bProcTermProcRunned, 1u);
    });
}

/* The program has loaded the library, registered a procedure and unloaded the library. */
TEST(Termination, AfterTheLibraryWasUnloadedTheProcedureStillRunsAtSigtermOnly) {
    Dl_info library{};
    ASSERT_NE(dladdr(reinterpret_cast<const void *>(vosExitHandle), &library), 0);
    const Outcome outcome =
        run([&library] { execl((testPrograms() + "/unloading").c_str(), "unloading", library.dli_fname, nullptr); });
    EXPECT_EQ(outcome.output, "unloaded terminated after the signal");
}
