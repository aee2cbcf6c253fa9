/* SPDX-License-Identifier: MIT */
/* Programs that cannot be executed. The child calls exit() in the creator's memory. So the creators in these scenarios
 * only report their results and end. */
#include <gmock/gmock.h>

#include <cstdarg>
#include <cstdio>
#include <thread>

#include "creation.h"
#include "support/faults.h"
#include "support/substitute.h"
#include "vos.h"

using namespace vostest;
using testing::AnyOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr uint32_t kReserved = 0xDEADBEEF;
const char *const kMissing = "/app/missing";

int32_t create(const char *path, const char *arguments) { return vosProcessCreate(path, 50, kReserved, arguments); }

/* The messages of all processes that wrote, in order. */
std::vector<std::string> messagesOfAll(const Outcome &outcome) {
    std::vector<std::string> all;
    for (const LogLine &line : splitLog(outcome.output)) all.push_back(line.message);
    return all;
}

/* Ends a scenario in which exit hooks and destructors have already run: they must not run again. */
[[noreturn]] void leave(int32_t result) {
    const std::string text = result > 0 ? endOf(result) : "result " + std::to_string(result);
    dprintf(STDOUT_FILENO, "\r\n%s", text.c_str());
    _exit(0);
}

void sayWhoEnds(int32_t /*iReserved*/) {
    std::array<char, 32> text{};
    const int length = snprintf(text.data(), text.size(), "[ended by %d]", getpid());
    if (write(STDOUT_FILENO, text.data(), static_cast<std::size_t>(length)) == -1) abort();
}

std::string endedBy(pid_t pid) { return "[ended by " + std::to_string(pid) + "]"; }

/* Replaces sched_setscheduler(): the program has ended, and is reaped, before its policy is set. */
int setWhenGone(pid_t pid, int policy, const sched_param *parameter) {
    EXPECT_TRUE(eventually([pid] { return kill(pid, 0) == -1; }));
    return sched_setscheduler(pid, policy, parameter);
}

/* Replaces vprintf(): SIGTERM arrives in the child while it holds the stream's lock. */
pid_t creator = 0;
int printWithSignal(const char *format, va_list list) {
    flockfile(stdout);
    if (getpid() != creator) raise(SIGTERM);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int written = vprintf(format, list);
#pragma GCC diagnostic pop
    funlockfile(stdout);
    return written;
}

}  // namespace

/* The address sanitizer calls this function before it looks for leaks, which it does in the child's exit(). There it
 * does not know the stacks of the creator's other threads, and reports memory as lost to which only they refer. */
static bool childOfAnotherThread = false;
extern "C" int __lsan_is_turned_off() { return childOfAnotherThread ? 1 : 0; }

TEST(FailedCreation, TheSearchPathIsNotConsulted) {
    NEEDS(kOwnProgram);
    const Outcome outcome = run([] {
        provide(kDemo, "end");
        setenv("PATH", "/app/bin", 1);
        leave(create("demo", nullptr));
    });
    EXPECT_THAT(messagesOfAll(outcome),
                testing::Contains("vosProcessCreate:name demo execl failed errno:" + errnoText(ENOENT) + "."));
}

TEST(FailedCreation, AMissingProgramIsReportedByTheChildWhichEndsWithOne) {
    NEEDS(kRealTime);
    for (const char *const arguments : {static_cast<const char *>(nullptr), "-a 1"}) {
        const Outcome outcome = run([arguments] { leave(create("/app/missing", arguments)); });
        const auto lines = splitLog(outcome.output);
        ASSERT_EQ(lines.size(), 2u) << outcome.output;
        EXPECT_EQ(lines[0].message, "vosProcessCreate:name /app/missing execl failed errno:" + errnoText(ENOENT) + ".");
        EXPECT_NE(lines[0].pid, outcome.pid);
        EXPECT_EQ(lines[1].message, "exit 1");
    }
}

TEST(FailedCreation, AFailingExecIsReportedUnderItsErrno) {
    NEEDS(kRealTime);
    for (const char *const call : {"execl", "execv"}) {
        const Outcome outcome = run([call] {
            Faults::arm({.call = call, .error = ENOEXEC});
            leave(create("/app/bin/demo", std::string(call) == "execv" ? "-a" : nullptr));
        });
        EXPECT_THAT(messagesOfAll(outcome),
                    ElementsAre("vosProcessCreate:name /app/bin/demo execl failed errno:" + errnoText(ENOEXEC) + ".",
                                "exit 1"));
    }
}

TEST(FailedCreation, WithIgnoredChildrenAMissingProgramMayBeGoneBeforeItsPolicyIsSet) {
    NEEDS(kRealTime);
    const Outcome outcome = run([] {
        vosProcessSignalDef();
        leave(create("/app/missing", nullptr));
    });
    const std::string refused =
        "vosProcessCreate:name /app/missing sched_setscheduler failed errno:" + errnoText(ESRCH) + ".";
    auto messages = messagesOfAll(outcome);
    ASSERT_FALSE(messages.empty());
    EXPECT_THAT(messages[0], HasSubstr("execl failed errno:" + errnoText(ENOENT)));
    messages.erase(messages.begin());
    EXPECT_THAT(messages, AnyOf(ElementsAre("no child"), ElementsAre(refused, "result -1")));
}

TEST(FailedCreation, TheChildsExitRunsTheCreatorsTerminationProcedureInTheCreatorsMemory) {
    NEEDS(kRealTime);
    NEEDS(kSharedMemory);
    const Outcome outcome = run([] {
        vosProcessRegTerminateProc([](int32_t) { vosPrintf("\r\nterminated in %d", getpid()); });
        const int32_t child = create("/app/missing", nullptr);
        raise(SIGTERM); /* has no effect any more */
        dprintf(STDOUT_FILENO, "\r\nstarted %u, child %d", g_bProcTermProcRunned, child);
        leave(child);
    });
    const auto messages = messagesOfAll(outcome);
    ASSERT_EQ(messages.size(), 4u) << outcome.output;
    EXPECT_THAT(messages[1], Not(EndsWith(std::to_string(outcome.pid))));
    EXPECT_EQ(messages[2], "started 1, child " + messages[1].substr(std::string("terminated in ").size()));
    EXPECT_EQ(messages[3], "exit 1");
}

TEST(FailedCreation, AChildThatAsksForARequestersPathLeavesTheCreatorItsOwnProcessId) {
    NEEDS(kRealTime);
    NEEDS(kSharedMemory);
    const Outcome outcome = run([] {
        static std::array<char, 128> path;
        vosProcessRegTerminateProc([](int32_t) { vosMsgGetLocalFile(path.data(), path.size()); });
        const int32_t child = create(kMissing, nullptr);
        dprintf(STDOUT_FILENO, "\r\n%s", path.data());
        vosMsgGetLocalFile(path.data(), path.size());
        dprintf(STDOUT_FILENO, "\r\n%s", path.data());
        leave(child);
    });
    const auto messages = messagesOfAll(outcome);
    ASSERT_EQ(messages.size(), 4u) << outcome.output;
    const std::string own = "/tmp/vos/clientp" + std::to_string(outcome.pid) + "t";
    EXPECT_THAT(messages[1], testing::StartsWith(own));
    EXPECT_THAT(messages[2], testing::StartsWith(own));
}

TEST(FailedCreation, ADirectoryOrAPathBehindAFileIsNoProgram) {
    NEEDS(kRealTime);
    const auto errorFor = [](const char *path) {
        const auto messages = messagesOfAll(run([path] { leave(create(path, "-a")); }));
        return messages.empty() ? "nothing" : messages[0];
    };
    EXPECT_EQ(errorFor("/app"), "vosProcessCreate:name /app execl failed errno:" + errnoText(EACCES) + ".");
    EXPECT_EQ(errorFor("/app/"), "vosProcessCreate:name /app/ execl failed errno:" + errnoText(EACCES) + ".");
    EXPECT_EQ(errorFor(""), "vosProcessCreate:name  execl failed errno:" + errnoText(ENOENT) + ".");
}

TEST(FailedCreation, AMissingProgramOfAnotherThreadIsReportedTheSameWay) {
    NEEDS(kRealTime);
    const Outcome outcome = run([] {
        childOfAnotherThread = true;
        std::thread([] { leave(create(kMissing, "-a")); }).join();
    });
    EXPECT_THAT(
        messagesOfAll(outcome),
        ElementsAre("vosProcessCreate:name /app/missing execl failed errno:" + errnoText(ENOENT) + ".", "exit 1"));
}

/* Effects on the creator */

TEST(FailedCreation, AProcedureThatIsRegisteredAgainStillRunsAtSigterm) {
    const Outcome outcome = run([] {
        vosDebugConfig(0);
        vosProcessRegTerminateProc(sayWhoEnds);
        create(kMissing, nullptr);
        EXPECT_EQ(vosProcessRegTerminateProc(sayWhoEnds), VOS_OK);
        EXPECT_EQ(g_bProcTermProcRunned, 0u);
        raise(SIGTERM);
        raise(SIGTERM);
        _exit(0);
    });
    EXPECT_THAT(outcome.output, EndsWith(endedBy(outcome.pid)));
    EXPECT_EQ(outcome.output.find(endedBy(outcome.pid)), outcome.output.rfind(endedBy(outcome.pid)));
}

TEST(FailedCreation, ExitHooksThatAreRegisteredAfterItDoNotRun) {
    NEEDS(kSharedMemory);
    const Outcome outcome = run([] {
        vosDebugConfig(0);
        create(kMissing, nullptr);
        EXPECT_NE(atexit([] {}), 0);
        EXPECT_EQ(vosProcessRegTerminateProc(sayWhoEnds), VOS_OK);
        exit(0);
    });
    EXPECT_EQ(outcome.output, "");
}

TEST(FailedCreation, TheFlagTellsTheCreatorThatItsProgramWasNotExecuted) {
    NEEDS(kOwnProgram);
    NEEDS(kSharedMemory);
    run([] {
        vosDebugConfig(0);
        vosProcessRegTerminateProc([](int32_t) {});
        provide(kDemo, "end");
        create(kDemo, "-a");
        EXPECT_EQ(g_bProcTermProcRunned, 0u);
        create(kMissing, "-a");
        EXPECT_EQ(g_bProcTermProcRunned, 1u);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    });
}

/* A signal that ended the child in the middle of its line would leave the lock of the creator's stream locked. */
TEST(FailedCreation, TheChildIsNotEndedInTheMiddleOfItsLine) {
    NEEDS(kSharedMemory);
    const Outcome outcome = run([] {
        creator = getpid();
        substitute("vprintf", printWithSignal);
        create(kMissing, nullptr);
        _exit(0);
    });
    EXPECT_THAT(outcome.output, HasSubstr("execl failed"));
}

/* A program that ends at once */

TEST(FailedCreation, WithIgnoredChildrenAProgramThatHasAlreadyEndedGivesMinusOneAndKeepsTheArguments) {
    NEEDS(kOwnProgram);
    const Outcome outcome = run([] {
        vosProcessSignalDef();
        provide(kDemo, "tell");
        substitute("sched_setscheduler", setWhenGone);
        EXPECT_EQ(create(kDemo, "-a"), VOS_ERROR);
        EXPECT_EQ(errno, ESRCH);
        EXPECT_EQ(Faults::liveBlocks(), 2);
    });
    EXPECT_THAT(outcome.output, HasSubstr(":[demo][-a]")) << "the program has run";
}
