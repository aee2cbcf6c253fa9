/* SPDX-License-Identifier: MIT */
/* Programs started with an argument string. */
#include <gmock/gmock.h>

#include <algorithm>
#include <thread>

#include "creation.h"
#include "support/faults.h"
#include "vos.h"

using namespace vostest;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr uint32_t kReserved = 0xDEADBEEF;

int32_t create(const char *path, const char *arguments) { return vosProcessCreate(path, 50, kReserved, arguments); }

/* Starts the waiting program with an argument string and returns the vector that it was given. */
std::vector<std::string> vectorFor(const char *arguments) { return Started{create(kDemo, arguments)}.arguments(); }

}  // namespace

/* Arguments */

TEST(Creation, TheArgumentStringIsSplitAtItsBlanks) {
    NEEDS(kOwnProgram);
    NEEDS(kRealTime);
    run([] {
        provide(kDemo, "wait");
        EXPECT_THAT(vectorFor("-a 1"), ElementsAre("demo", "-a", "1"));
        EXPECT_THAT(vectorFor("-a"), ElementsAre("demo", "-a"));
    });
}

TEST(Creation, BetweenTwoBlanksInARowIsAnEmptyArgument) {
    NEEDS(kOwnProgram);
    NEEDS(kRealTime);
    run([] {
        provide(kDemo, "wait");
        EXPECT_THAT(vectorFor("-a  1"), ElementsAre("demo", "-a", "", "1"));
    });
}

TEST(Creation, ABlankAtAnEndMakesAnEmptyArgumentThere) {
    NEEDS(kOwnProgram);
    NEEDS(kRealTime);
    run([] {
        provide(kDemo, "wait");
        EXPECT_THAT(vectorFor("-a "), ElementsAre("demo", "-a", ""));
        EXPECT_THAT(vectorFor(" -a"), ElementsAre("demo", "", "-a"));
        EXPECT_THAT(vectorFor(" "), ElementsAre("demo", "", ""));
    });
}

TEST(Creation, AnEmptyArgumentStringIsOneEmptyArgumentAndNoneIsNone) {
    NEEDS(kOwnProgram);
    NEEDS(kRealTime);
    run([] {
        provide(kDemo, "wait");
        EXPECT_THAT(vectorFor(""), ElementsAre("demo", ""));
        EXPECT_THAT(vectorFor(nullptr), ElementsAre("demo"));
    });
}

TEST(Creation, OnlyBlanksSeparate) {
    NEEDS(kOwnProgram);
    NEEDS(kRealTime);
    run([] {
        provide(kDemo, "wait");
        EXPECT_THAT(vectorFor("a\tb \"c d\""), ElementsAre("demo", "a\tb", "\"c", "d\""));
    });
}

TEST(Creation, ManyLongArgumentsArriveWhole) {
    NEEDS(kOwnProgram);
    NEEDS(kRealTime);
    run([] {
        provide(kDemo, "wait");
        const std::vector<std::string> expected(1000, std::string(60, 'x'));
        std::string arguments;
        for (const std::string &each : expected) arguments += (arguments.empty() ? "" : " ") + each;
        auto vector = vectorFor(arguments.c_str());
        ASSERT_EQ(vector.size(), 1001u);
        vector.erase(vector.begin());
        EXPECT_EQ(vector, expected);
    });
}

TEST(Creation, APathWithoutSlashIsTheNameAndIsTakenFromTheCurrentDirectory) {
    NEEDS(kOwnProgram);
    NEEDS(kRealTime);
    run([] {
        provide(kDemo, "wait");
        ASSERT_EQ(chdir("/app/bin"), 0);
        EXPECT_THAT(Started{create("demo", "-a")}.arguments(), ElementsAre("demo", "-a"));
        EXPECT_THAT(Started{create("../bin/demo", nullptr)}.arguments(), ElementsAre("demo"));
    });
}

TEST(Creation, ABlankInTheProgramsNameAbortsTheCaller) {
    for (const char *const arguments : {"", "-a", "-a 1"}) {
        const Outcome outcome = run([arguments] {
            dup2(STDOUT_FILENO, STDERR_FILENO);
            create("/app/bin/two words", arguments);
        });
        EXPECT_TRUE(outcome.killedBy(SIGABRT));
        EXPECT_THAT(outcome.output, HasSubstr("vos/linux/vosProcess:129: vosProcessCreate: Assertion "
                                              "`iArgsNum == (iArgsTmp + 1)' failed."));
    }
}

TEST(Creation, ManyBlanksInTheProgramsNameAbortBeforeAnythingIsOverrun) {
    const Outcome outcome = run([] { create(std::string(4000, ' ').c_str(), ""); });
    EXPECT_TRUE(outcome.killedBy(SIGABRT));
}

TEST(Creation, ABlankInTheNameWithoutArgumentStringOrInADirectoryIsAllowed) {
    NEEDS(kOwnProgram);
    NEEDS(kRealTime);
    run([] {
        provide("/tmp/two words", "wait");
        EXPECT_THAT(Started{create("/tmp/two words", nullptr)}.arguments(), ElementsAre("two words"));
        ASSERT_EQ(mkdir("/tmp/a directory", 0755), 0);
        provide("/tmp/a directory/demo", "wait");
        EXPECT_THAT(Started{create("/tmp/a directory/demo", "-a")}.arguments(), ElementsAre("demo", "-a"));
    });
}

/* Policy and priority */

TEST(Creation, TheProcessRunsRoundRobinWithItsPriority) {
    NEEDS(kOwnProgram);
    NEEDS(kRealTime);
    run([] {
        provide(kDemo, "wait");
        for (const int priority : {1, 50, 99}) {
            const Started program{vosProcessCreate(kDemo, priority, kReserved, "-a")};
            EXPECT_EQ(program.policy(), SCHED_RR);
            EXPECT_EQ(program.priority(), priority);
        }
    });
}

TEST(Creation, APriorityOutsideOneToNinetyNineIsRefused) {
    const Outcome outcome = run([] {
        for (const int priority : {0, 100, -1, INT32_MIN, INT32_MAX})
            EXPECT_EQ(vosProcessCreate("/app/100%d", priority, kReserved, "-a"), VOS_ERR_PARAM);
    });
    EXPECT_THAT(
        outcome.messages(),
        testing::AllOf(testing::SizeIs(5), testing::Each("vosProcessCreate:name /app/100%d iPriority invalid.")));
}

TEST(Creation, ANullPathIsRefusedWhateverThePriority) {
    const Outcome outcome = run([] {
        EXPECT_EQ(vosProcessCreate(nullptr, 50, kReserved, "-a"), VOS_ERR_PARAM);
        EXPECT_EQ(vosProcessCreate(nullptr, 0, kReserved, nullptr), VOS_ERR_PARAM);
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosProcessCreate:parameter error.", "vosProcessCreate:parameter error."));
}

TEST(Creation, WithoutTheRightTheProcessRunsUnderTheInheritedPolicyAndItsArgumentsStayAllocated) {
    NEEDS(kOwnProgram);
    const Outcome outcome = run([] {
        provide(kDemo, "tell");
        giveUpRealTime();
        EXPECT_EQ(create(kDemo, "-a 1"), VOS_ERROR);
        EXPECT_EQ(endOf(-1), "no child"); /* reaps whichever child there is */
        EXPECT_EQ(waitpid(-1, nullptr, 0), -1);
        EXPECT_EQ(Faults::liveBlocks(), 2);
    });
    EXPECT_THAT(outcome.output, HasSubstr("policy " + std::to_string(SCHED_OTHER) + ":[demo][-a][1]"));
    EXPECT_THAT(
        outcome.output,
        HasSubstr(" vosProcessCreate:name /app/bin/demo sched_setscheduler failed errno:" + errnoText(EPERM) + "."));
}

/* Log lines and resources */

TEST(Creation, TheTraceNamesThePathAndTheId) {
    NEEDS(kOwnProgram);
    NEEDS(kRealTime);
    const Outcome outcome = run([] {
        provide(kDemo, "wait");
        vosDebugConfig(VOS_DEBUG_ERROR | VOS_DEBUG_TRACE);
        const int32_t pid = create(kDemo, "-a 1");
        const Started program{pid};
        dprintf(STDOUT_FILENO, "\r\n%d", pid);
    });
    const auto messages = outcome.messages();
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_EQ(messages[0], "vosProcessCreate:start.");
    EXPECT_EQ(messages[1], "vosProcessCreate:end name /app/bin/demo return " + messages[2] + ".");
}

TEST(Creation, ASuccessMakesExactlyTheseCallsAndReleasesTheBlocks) {
    NEEDS(kOwnProgram);
    NEEDS(kRealTime);
    NEEDS(kSharedMemory); /* the child's calls are recorded in the creator's memory */
    const auto callsFor = [](const char *arguments) {
        auto calls = Faults::record([arguments] { EXPECT_GT(create(kDemo, arguments), 0); });
        const auto first = std::find(calls.begin(), calls.end(), "sigaction"); /* one for each signal */
        calls.erase(std::unique(first, calls.end()), calls.end());
        return calls;
    };
    run([&] {
        provide(kDemo, "end");
        std::array<char, 128> path{};
        vosMsgGetLocalFile(path.data(), path.size()); /* otherwise the first creation would ask for the process id */
        EXPECT_THAT(callsFor("-a 1"),
                    ElementsAre("malloc", "malloc", "vfork", "sigaction", "execv", "sched_setscheduler"));
        EXPECT_THAT(callsFor(nullptr), ElementsAre("vfork", "sigaction", "execl", "sched_setscheduler"));
        EXPECT_EQ(Faults::liveBlocks(), 0);
    });
}

/* A failure keeps only the argument blocks that have been allocated before it. */
TEST(Creation, EachFailingCallHasItsResultAndLineAndKeepsOnlyTheArgumentBlocks) {
    NEEDS(kOwnProgram);
    NEEDS(kRealTime);
    struct Case {
        const char *call;
        int occurrence;
        int32_t result;
        int blocksKept;
        std::string message;
    };
    const Case cases[] = {
        {"malloc", 1, VOS_ERR_MEMORY, 1, "malloc failed."},
        {"malloc", 2, VOS_ERR_MEMORY, 1, "malloc failed."},
        {"vfork", 1, VOS_ERR_FORK, 2, "fork failed."},
        {"sched_setscheduler", 1, VOS_ERROR, 2, "sched_setscheduler failed errno:" + errnoText(EIO) + "."},
    };
    for (const Case &each : cases) {
        const Attempt attempt = failCall(
            {.call = each.call, .occurrence = each.occurrence}, [] { provide(kDemo, "end"); },
            [] { return long{create(kDemo, "-a 1")}; });
        EXPECT_EQ(attempt.result, each.result);
        EXPECT_THAT(attempt.messages, ElementsAre("vosProcessCreate:name /app/bin/demo " + each.message));
        EXPECT_EQ(attempt.blocksKept, each.blocksKept) << describe(attempt.point);
        EXPECT_EQ(attempt.descriptorsKept, 0);
        EXPECT_EQ(attempt.locksKept, 0);
    }
}

TEST(Creation, WithoutArgumentStringAFailureKeepsNothing) {
    NEEDS(kOwnProgram);
    NEEDS(kRealTime);
    std::vector<Attempt> attempts;
    for (const char *const call : {"vfork", "sched_setscheduler"}) {
        attempts.push_back(failCall(
            {.call = call}, [] { provide(kDemo, "end"); }, [] { return long{create(kDemo, nullptr)}; }));
    }
    EXPECT_EQ(attempts[0].result, VOS_ERR_FORK);
    EXPECT_EQ(attempts[1].result, VOS_ERROR);
    expectNothingKept(attempts);
}

TEST(Creation, ThreadsStartProgramsAtTheSameTime) {
    NEEDS(kOwnProgram);
    NEEDS(kRealTime);
    run([] {
        provide(kDemo, "wait");
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([i] {
                const std::string number = std::to_string(i);
                for (int round = 0; round < 5; ++round)
                    EXPECT_THAT(vectorFor(("-n " + number).c_str()), ElementsAre("demo", "-n", number));
            });
        for (std::thread &each : threads) each.join();
        EXPECT_EQ(Faults::liveBlocks(), 0);
    });
}

TEST(Creation, WithIgnoredChildrenAProgramStartsAndLeavesNoZombie) {
    NEEDS(kOwnProgram);
    NEEDS(kRealTime);
    run([] {
        vosProcessSignalDef();
        provide(kDemo, "wait");
        const int32_t pid = create(kDemo, "-a");
        EXPECT_THAT(Started{pid}.arguments(), ElementsAre("demo", "-a"));
        EXPECT_TRUE(eventually([pid] { return vosProcessCheck(pid) == VOS_ERROR; }));
    });
}
