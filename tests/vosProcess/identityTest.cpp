/* SPDX-License-Identifier: MIT */
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>

#include "support/faults.h"
#include "vos.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string kName32 = "a-name-of-exactly-32-characters!";

/* Runs the program that prints its name, started with that first argument and two more. */
std::string nameOfProgramStartedAs(const std::string &first) {
    return run([&] { execl((testPrograms() + "/whoami").c_str(), first.c_str(), "second", "third", nullptr); }).output;
}

}  // namespace

TEST(ProcessInit, ANameOf32CharactersIsTakenAndOneOf33IsRefusedAndChangesNothing) {
    ASSERT_EQ(kName32.size(), 32u);
    const Outcome outcome = run([] {
        EXPECT_EQ(vosProcessInit(kName32.c_str()), VOS_OK);
        EXPECT_EQ(vosProcessGetName(), kName32);
        signal(SIGINT, SIG_DFL);
        EXPECT_EQ(vosProcessInit((kName32 + "x").c_str()), VOS_ERR_PARAM);
        EXPECT_EQ(vosProcessGetName(), kName32);
        EXPECT_EQ(signal(SIGINT, SIG_DFL), SIG_DFL);
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(ProcessInit, ANullNameIsRefusedWithALineAtTraceLevel) {
    const Outcome outcome = run([] {
        vosProcessInit("before");
        vosDebugConfig(VOS_DEBUG_TRACE);
        EXPECT_EQ(vosProcessInit(nullptr), VOS_ERR_PARAM);
        EXPECT_STREQ(vosProcessGetName(), "before");
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosProcessInit:parameters error."));
}

TEST(ProcessInit, SuccessLogsTheEndLineUnderTheNewName) {
    const Outcome outcome = run([] {
        vosDebugConfig(VOS_DEBUG_TRACE);
        vosProcessInit("fresh");
    });
    ASSERT_EQ(splitLog(outcome.output).size(), 1u);
    EXPECT_EQ(splitLog(outcome.output)[0].process, "fresh");
    EXPECT_THAT(outcome.messages(), ElementsAre("vosProcessInit:end return 0."));
}

TEST(ProcessInit, RenamesAndLeavesNothingOfALongerName) {
    run([] {
        vosProcessInit("a-long-name");
        vosProcessInit("b");
        EXPECT_STREQ(vosProcessGetName(), "b");
        EXPECT_STREQ(szVosProcName, "b");
    });
}

TEST(ProcessInit, ThePresentNameMayBeGivenAgainWholeOrInPart) {
    run([] {
        vosProcessInit("a-long-name");
        EXPECT_EQ(vosProcessInit(vosProcessGetName()), VOS_OK);
        EXPECT_STREQ(vosProcessGetName(), "a-long-name");
        EXPECT_EQ(vosProcessInit(vosProcessGetName() + 2), VOS_OK);
        EXPECT_STREQ(vosProcessGetName(), "long-name");
    });
}

TEST(ProcessInit, AnEmptyNameIsTakenFromTheCommandLineWhenItIsNextNeeded) {
    run([] {
        vosProcessInit("before");
        EXPECT_EQ(vosProcessInit(""), VOS_OK);
        EXPECT_EQ(szVosProcName[0], '\0');
        EXPECT_NE(vosProcessGetName()[0], '\0');
        EXPECT_STRNE(vosProcessGetName(), "before");
    });
}

TEST(ProcessName, APathOf20CharactersIsTheNameWithoutTheArguments) {
    const std::string path = "/usr/bin/twenty-long";
    ASSERT_EQ(path.size(), 20u);
    EXPECT_EQ(nameOfProgramStartedAs(path), path);
}

TEST(ProcessName, OfAFirstArgumentOf40CharactersTheFirst32AreTheName) {
    const std::string first = kName32 + "12345678";
    EXPECT_EQ(nameOfProgramStartedAs(first), kName32);
}

TEST(ProcessName, IsReadFromTheCommandLineOnlyOnce) {
    run([] {
        EXPECT_THAT(Faults::record([] { vosProcessGetName(); }), ElementsAre("open", "read", "close"));
        EXPECT_THAT(Faults::record([] { vosProcessGetName(); }), IsEmpty());
    });
}

TEST(ProcessName, AFailedOpenGivesAnEmptyNameWithoutALineAndALaterCallTriesAgain) {
    const Outcome outcome = run([] {
        vosDebugConfig(0xFFFFFFFFu);
        Faults::arm({.call = "open"});
        EXPECT_STREQ(vosProcessGetName(), "");
        EXPECT_TRUE(Faults::disarm());
        EXPECT_STRNE(vosProcessGetName(), "");
    });
    EXPECT_EQ(outcome.output, "");
}

TEST(ProcessName, EachFailingCallLeavesTheNameEmptyOrWhole) {
    const auto attempts = failEachCall([] {}, [] { return static_cast<long>(strlen(vosProcessGetName())); });
    expectNothingKept(attempts);
    EXPECT_EQ(at(attempts, "open#1").result, 0);
    EXPECT_EQ(at(attempts, "read#1").result, 0);
    EXPECT_EQ(at(attempts, "close#1").result, 32);
}

TEST(ProcessNameByPid, GivesTheFirst32CharactersWithoutATerminator) {
    run([] {
        std::array<char, 40> name{};
        name.fill('#');
        EXPECT_EQ(vosProcessGetNameByPid(getpid(), name.data()), VOS_OK);
        EXPECT_EQ(strncmp(name.data(), vosProcessGetName(), 32), 0);
        EXPECT_EQ(name[32], '#');
    });
}

TEST(ProcessNameByPid, AProcessThatDoesNotExistGivesMinus1WithoutALine) {
    const Outcome outcome = run([] {
        std::array<char, 33> name{};
        vosDebugConfig(0xFFFFFFFFu);
        EXPECT_EQ(vosProcessGetNameByPid(999999, name.data()), VOS_ERROR);
        EXPECT_EQ(vosProcessGetNameByPid(-1, name.data()), VOS_ERROR);
        EXPECT_EQ(name[0], '\0');
    });
    EXPECT_EQ(outcome.output, "");
}

/* A process that has ended and is not yet reaped has an empty command line, as a kernel thread has. */
TEST(ProcessNameByPid, AnEmptyCommandLineLeavesTheBufferAndGives0) {
    run([] {
        const pid_t child = fork();
        if (child == 0) _exit(0);
        siginfo_t ended{};
        ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT), 0);
        char name[33] = "as before";
        EXPECT_EQ(vosProcessGetNameByPid(child, name), VOS_OK);
        EXPECT_STREQ(name, "as before");
        waitpid(child, nullptr, 0);
    });
}

TEST(ProcessNameByPid, ANullBufferIsNeverWritten) {
    run([] { EXPECT_EQ(vosProcessGetNameByPid(getpid(), nullptr), VOS_OK); });
}

TEST(ProcessNameByPid, EachFailingCallGivesItsResult) {
    const auto attempts = failEachCall([] {},
                                       [] {
                                           std::array<char, 33> name{};
                                           const int32_t result = vosProcessGetNameByPid(getpid(), name.data());
                                           return result == VOS_OK && name[0] == '\0' ? 100L : result;
                                       });
    expectNothingKept(attempts);
    EXPECT_EQ(at(attempts, "open#1").result, VOS_ERROR);
    EXPECT_EQ(at(attempts, "read#1").result, 100) << "a read error is ignored and leaves the buffer";
    EXPECT_EQ(at(attempts, "close#1").result, VOS_OK);
}

TEST(ProcessQueries, TheIdIsTheCallersOwn) {
    run([] { EXPECT_EQ(vosProcessGetId(), getpid()); });
}

TEST(ProcessCheck, Process0IsTheCallerAndExists) {
    run([] {
        EXPECT_EQ(vosProcessCheck(0), VOS_OK);
        EXPECT_EQ(vosProcessCheck(getpid()), VOS_OK);
        EXPECT_EQ(vosProcessCheck(getppid()), VOS_OK);
    });
}

TEST(ProcessCheck, AnEndedChildExistsUntilItIsReaped) {
    run([] {
        const pid_t child = fork();
        if (child == 0) _exit(0);
        siginfo_t ended{};
        ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT), 0);
        EXPECT_EQ(vosProcessCheck(child), VOS_OK);
        waitpid(child, nullptr, 0);
        EXPECT_EQ(vosProcessCheck(child), VOS_ERROR);
        EXPECT_EQ(vosProcessCheck(-5), VOS_ERROR);
    });
}

TEST(ProcessCheck, AnyFailureOfTheQueryGivesMinus1) {
    const Attempt attempt = failCall(
        {.call = "sched_getscheduler", .error = EPERM}, [] {}, [] { return vosProcessCheck(0); });
    EXPECT_EQ(attempt.result, VOS_ERROR);
    EXPECT_THAT(attempt.messages, IsEmpty());
}

TEST(Getopt, ReturnsWhatTheCLibraryReturnsAndSharesItsState) {
    run([] {
        std::string arguments[] = {"program", "-a", "-b", "value", "-x", "rest"};
        char *vector[7] = {};
        for (int i = 0; i < 6; ++i) vector[i] = arguments[i].data();
        opterr = 0;
        EXPECT_EQ(vosGetopt(6, vector, "ab:"), 'a');
        EXPECT_EQ(vosGetopt(6, vector, "ab:"), 'b');
        EXPECT_STREQ(optarg, "value");
        EXPECT_EQ(vosGetopt(6, vector, "ab:"), '?');
        EXPECT_EQ(optopt, 'x');
        EXPECT_EQ(vosGetopt(6, vector, "ab:"), -1);
        EXPECT_STREQ(vector[optind], "rest");
    });
}
