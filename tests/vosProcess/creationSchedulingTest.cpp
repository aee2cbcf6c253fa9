/* SPDX-License-Identifier: MIT */
/* Stopping, rescheduling and describing processes. */
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <algorithm>
#include <memory>
#include <thread>

#include "creation.h"
#include "support/faults.h"
#include "vos.h"

using namespace vostest;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

namespace {

constexpr uint32_t kReserved = 0xDEADBEEF;
constexpr int32_t kUntouched = 4711;

/* No process has this id: it is larger than any that a kernel gives. */
constexpr int32_t kNobody = INT32_MAX;

struct Description {
    int32_t result = 0;
    int32_t priority = kUntouched;
    std::string text;
};

/* Exactly the nine bytes that the header names, on the heap, where a sanitizer finds an access past the end. */
Description describe(int32_t pid) {
    Description description;
    const std::unique_ptr<std::array<char, 9>> text{new std::array<char, 9>{"unset"}};
    description.result = vosProcessDescGet(pid, &description.priority, text->data());
    description.text = text->data();
    return description;
}

void expectDescribed(const Description &description, const char *text, int32_t priority) {
    EXPECT_EQ(description.result, VOS_OK);
    EXPECT_EQ(description.text, text);
    EXPECT_EQ(description.priority, priority);
}

void runUnder(int policy, int priority) {
    const sched_param parameter{.sched_priority = priority};
    ASSERT_EQ(sched_setscheduler(0, policy, &parameter), 0);
}

constexpr int kNicest = 19;

/* The nice value of this process. The tests may run with any nice value. A value below 0 is set to 0 first, because -1
 * cannot be described. */
int niceValue() {
    const int now = std::max(getpriority(PRIO_PROCESS, 0), 0);
    EXPECT_EQ(setpriority(PRIO_PROCESS, 0, now), 0);
    return now;
}

pid_t startWaiting() {
    const pid_t pid = fork();
    while (pid == 0) pause();
    return pid;
}

}  // namespace

/* Describing */

TEST(ProcessDescription, ANormalProcessIsShownWithItsNiceValue) {
    run([] {
        const int nice = niceValue();
        expectDescribed(describe(0), "NORMAL", nice);
        const int nicer = std::min(nice + 5, kNicest);
        ASSERT_EQ(setpriority(PRIO_PROCESS, 0, nicer), 0);
        expectDescribed(describe(0), "NORMAL", nicer);
        expectDescribed(describe(getpid()), "NORMAL", nicer);
    });
}

TEST(ProcessDescription, ARealTimeProcessIsShownWithItsRealTimePriority) {
    NEEDS(kRealTime);
    run([] {
        runUnder(SCHED_RR, 50);
        expectDescribed(describe(0), "RR RT", 50);
        runUnder(SCHED_FIFO, 7);
        expectDescribed(describe(0), "FIFO RT", 7);
    });
}

TEST(ProcessDescription, AnyOtherPolicyIsUnknownInItsOwnSpellingWithTheNiceValue) {
    run([] {
        const int nice = std::min(niceValue() + 3, kNicest);
        ASSERT_EQ(setpriority(PRIO_PROCESS, 0, nice), 0);
        runUnder(SCHED_BATCH, 0);
        expectDescribed(describe(0), "UNKKNOWN", nice);
        runUnder(SCHED_IDLE, 0);
        expectDescribed(describe(0), "UNKKNOWN", nice);
    });
}

TEST(ProcessDescription, APolicyThatIsResetOnForkIsAnotherPolicy) {
    run([] {
        const int nice = niceValue();
        runUnder(SCHED_OTHER | SCHED_RESET_ON_FORK, 0);
        expectDescribed(describe(0), "UNKKNOWN", nice);
    });
}

TEST(ProcessDescription, ANiceValueOfMinusOneCannotBeToldFromAFailure) {
    NEEDS(kRealTime); /* it needs the same right */
    const Outcome outcome = run([] {
        ASSERT_EQ(setpriority(PRIO_PROCESS, 0, -1), 0);
        const Description description = describe(0);
        EXPECT_EQ(description.result, VOS_ERROR);
        EXPECT_EQ(description.text, "NORMAL");
        EXPECT_EQ(description.priority, kUntouched);
        ASSERT_EQ(setpriority(PRIO_PROCESS, 0, -2), 0);
        expectDescribed(describe(0), "NORMAL", -2);
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(ProcessDescription, AProcessThatDoesNotExistHasNoneAndNothingIsWritten) {
    const Outcome outcome = run([] {
        for (const int32_t pid : {kNobody, -1}) {
            const Description description = describe(pid);
            EXPECT_EQ(description.result, VOS_ERROR);
            EXPECT_EQ(description.text, "unset");
            EXPECT_EQ(description.priority, kUntouched);
        }
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(ProcessDescription, NullPointersAreRefused) {
    const Outcome outcome = run([] {
        int32_t priority = kUntouched;
        std::array<char, 9> text{};
        EXPECT_EQ(vosProcessDescGet(0, nullptr, text.data()), VOS_ERR_PARAM);
        EXPECT_EQ(vosProcessDescGet(0, &priority, nullptr), VOS_ERR_PARAM);
        EXPECT_EQ(priority, kUntouched);
        EXPECT_STREQ(text.data(), "");
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosProcessDescGet:parameter error.", "vosProcessDescGet:parameter error."));
}

TEST(ProcessDescription, EachFailingCallGivesAnErrorWithoutALineAndTheTextStaysOnceWritten) {
    NEEDS(kRealTime);
    struct Case {
        const char *call;
        int policy;
        int priority;
        const char *text;
    };
    for (const Case &each :
         {Case{"sched_getscheduler", SCHED_OTHER, 0, "unset"}, Case{"sched_getparam", SCHED_RR, 50, "RR RT"},
          Case{"getpriority", SCHED_OTHER, 0, "NORMAL"}}) {
        const Outcome outcome = run([&each] {
            runUnder(each.policy, each.priority);
            Faults::arm({.call = each.call});
            const Description description = describe(0);
            EXPECT_TRUE(Faults::disarm()) << each.call;
            EXPECT_EQ(description.result, VOS_ERROR);
            EXPECT_EQ(description.text, each.text);
            EXPECT_EQ(description.priority, kUntouched);
        });
        EXPECT_THAT(outcome.messages(), IsEmpty());
    }
}

TEST(ProcessDescription, NoOtherCallsAreMade) {
    NEEDS(kRealTime);
    run([] {
        EXPECT_THAT(Faults::record([] { describe(0); }), ElementsAre("sched_getscheduler", "getpriority"));
        runUnder(SCHED_RR, 50);
        EXPECT_THAT(Faults::record([] { describe(0); }), ElementsAre("sched_getscheduler", "sched_getparam"));
    });
}

/* Rescheduling */

TEST(ProcessSched, AProcessIsPutUnderRoundRobin) {
    NEEDS(kRealTime);
    const Outcome outcome = run([] {
        const pid_t child = startWaiting();
        const Started program{child};
        vosDebugConfig(VOS_DEBUG_ERROR | VOS_DEBUG_TRACE);
        for (const int priority : {1, 99}) {
            EXPECT_EQ(vosProcessSched(child, priority, kReserved), VOS_OK);
            EXPECT_EQ(program.policy(), SCHED_RR);
            EXPECT_EQ(program.priority(), priority);
        }
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosProcessSched:start.", "vosProcessSched:end return 0.",
                                                "vosProcessSched:start.", "vosProcessSched:end return 0."));
}

TEST(ProcessSched, OfAProcessWithThreadsItIsTheMainThreadThatIsPutUnderRoundRobin) {
    NEEDS(kRealTime);
    run([] {
        const pid_t self = getpid();
        std::thread([self] {
            EXPECT_EQ(vosProcessSched(self, 7, kReserved), VOS_OK);
            expectDescribed(describe(self), "RR RT", 7);
            EXPECT_EQ(describe(gettid()).text, "NORMAL");
            EXPECT_EQ(describe(0).text, "NORMAL") << "0 is the calling thread";
        }).join();
        EXPECT_EQ(sched_getscheduler(0), SCHED_RR);
        std::thread([] { EXPECT_EQ(describe(gettid()).text, "RR RT"); }).join(); /* inherited */
    });
}

TEST(ProcessSched, TheKernelRefusesPrioritiesOutOfRange) {
    const Outcome outcome = run([] {
        for (const int priority : {0, 100, -1}) EXPECT_EQ(vosProcessSched(0, priority, kReserved), VOS_ERROR);
        EXPECT_EQ(sched_getscheduler(0), SCHED_OTHER);
    });
    const std::string refused = "vosProcessSched:sched_setscheduler failed errno:" + errnoText(EINVAL) + ".";
    EXPECT_THAT(outcome.messages(), ElementsAre(refused, refused, refused));
}

TEST(ProcessSched, WithoutTheRightTheKernelRefuses) {
    const Outcome outcome = run([] {
        giveUpRealTime();
        EXPECT_EQ(vosProcessSched(0, 50, kReserved), VOS_ERROR);
        EXPECT_EQ(sched_getscheduler(0), SCHED_OTHER);
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosProcessSched:sched_setscheduler failed errno:" + errnoText(EPERM) + "."));
}

TEST(ProcessSched, AProcessThatDoesNotExistIsAnError) {
    const Outcome outcome = run([] { EXPECT_EQ(vosProcessSched(kNobody, 50, kReserved), VOS_ERROR); });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosProcessSched:sched_setscheduler failed errno:" + errnoText(ESRCH) + "."));
}

TEST(ProcessSched, TheFailingCallHasItsLine) {
    const Attempt attempt = failCall(
        {.call = "sched_setscheduler"}, [] {}, [] { return long{vosProcessSched(0, 50, 0)}; });
    EXPECT_EQ(attempt.result, VOS_ERROR);
    EXPECT_THAT(attempt.messages,
                ElementsAre("vosProcessSched:sched_setscheduler failed errno:" + errnoText(EIO) + "."));
}

/* Stopping */

TEST(ProcessDestroy, AChildIsEndedAndReaped) {
    const Outcome outcome = run([] {
        const pid_t child = startWaiting();
        vosDebugConfig(VOS_DEBUG_ERROR | VOS_DEBUG_TRACE);
        EXPECT_EQ(vosProcessDestroy(child), VOS_OK);
        EXPECT_EQ(waitpid(-1, nullptr, 0), -1);
        EXPECT_EQ(errno, ECHILD);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosProcessDestroy:start.", "vosProcessDestroy:end return 0."));
}

TEST(ProcessDestroy, AProcessThatIsNoChildIsSentTheSignalAndNotWaitedFor) {
    Process stranger = start([] {
        vosProcessRegTerminateProc([](int32_t) { say("\r\nasked to end"); });
        ready();
        while (true) pause();
    });
    stranger.awaitReady();
    run([&] { EXPECT_EQ(vosProcessDestroy(stranger.pid()), VOS_OK); });
    stranger.awaitOutput("asked to end");
    stranger.send(SIGKILL);
    stranger.finish();
}

TEST(ProcessDestroy, AChildThatGoesOnKeepsItsCallerWaiting) {
    NEEDS(kOwnCallNumbers);
    Process caller = start([] {
        const Pipe registered;
        const pid_t child = fork();
        if (child == 0) {
            vosProcessRegTerminateProc([](int32_t) { say("\r\nasked to end"); });
            EXPECT_EQ(write(registered.to(), "", 1), 1);
            while (true) pause();
        }
        char byte = 0;
        EXPECT_EQ(read(registered.from(), &byte, 1), 1);
        dprintf(STDOUT_FILENO, "%d", child);
        EXPECT_EQ(vosProcessDestroy(child), VOS_OK);
        vosPrintf("\r\nthe child has ended");
    });
    const std::string output = caller.awaitOutput("asked to end");
    const std::string waiting = std::to_string(SYS_wait4) + " ";
    EXPECT_TRUE(eventually([&] {
        std::ifstream file("/proc/" + std::to_string(caller.pid()) + "/syscall");
        std::string call;
        return std::getline(file, call) && call.starts_with(waiting);
    }));
    ASSERT_EQ(kill(std::stoi(output), SIGKILL), 0);
    EXPECT_THAT(caller.finish().output, EndsWith("asked to end\r\nthe child has ended"));
}

/* A timer's handler, installed without SA_RESTART, interrupts the wait again and again. */
TEST(ProcessDestroy, AHandledSignalDoesNotEndTheWait) {
    Process caller = start([] {
        const Pipe registered;
        const pid_t child = fork();
        if (child == 0) {
            vosProcessRegTerminateProc([](int32_t) { say("[asked to end]"); });
            EXPECT_EQ(write(registered.to(), "", 1), 1);
            while (true) pause();
        }
        char byte = 0;
        EXPECT_EQ(read(registered.from(), &byte, 1), 1);
        dprintf(STDOUT_FILENO, "%d", child);
        struct sigaction interruption = {};
        interruption.sa_handler = [](int) { say("."); };
        sigaction(SIGALRM, &interruption, nullptr);
        const itimerval often{{0, 5000}, {0, 5000}};
        setitimer(ITIMER_REAL, &often, nullptr);
        EXPECT_EQ(vosProcessDestroy(child), VOS_OK);
        const itimerval never{};
        setitimer(ITIMER_REAL, &never, nullptr);
        EXPECT_EQ(kill(child, 0), -1) << "the child has ended and is reaped";
    });
    const std::string output = caller.awaitOutput("[asked to end].....");
    ASSERT_EQ(kill(std::stoi(output), SIGKILL), 0);
    EXPECT_TRUE(caller.finish().exited(0));
}

TEST(ProcessDestroy, WithIgnoredChildrenItReturnsOnceTheChildHasEnded) {
    run([] {
        vosProcessSignalDef();
        const pid_t child = startWaiting();
        EXPECT_EQ(vosProcessDestroy(child), VOS_OK);
        EXPECT_EQ(kill(child, 0), -1);
        EXPECT_EQ(errno, ESRCH);
    });
}

TEST(ProcessDestroy, AnEndedChildThatIsNotYetReapedIsReaped) {
    run([] {
        const pid_t child = fork();
        if (child == 0) _exit(0);
        siginfo_t info{};
        ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT), 0);
        EXPECT_EQ(vosProcessDestroy(child), VOS_OK);
        EXPECT_EQ(waitpid(child, nullptr, 0), -1);
    });
}

TEST(ProcessDestroy, AProcessThatDoesNotExistIsAnError) {
    const Outcome outcome = run([] { EXPECT_EQ(vosProcessDestroy(kNobody), VOS_ERROR); });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosProcessDestroy:kill failed errno:" + errnoText(ESRCH) + "."));
}

TEST(ProcessDestroy, OnlyAFailedSignalIsAnError) {
    const auto attempts = failEachCall([] {},
                                       [] {
                                           const pid_t child = startWaiting();
                                           const long result = vosProcessDestroy(child);
                                           kill(child, SIGKILL);
                                           return result;
                                       });
    ASSERT_EQ(attempts.size(), 2u);
    expectNothingKept(attempts);
    EXPECT_EQ(at(attempts, "kill#1").result, VOS_ERROR);
    EXPECT_THAT(at(attempts, "kill#1").messages,
                ElementsAre("vosProcessDestroy:kill failed errno:" + errnoText(EIO) + "."));
    EXPECT_EQ(at(attempts, "waitpid#1").result, VOS_OK);
    EXPECT_THAT(at(attempts, "waitpid#1").messages, IsEmpty());
}
