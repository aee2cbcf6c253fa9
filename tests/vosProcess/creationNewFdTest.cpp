/* SPDX-License-Identifier: MIT */
/* Programs started with standard descriptors of their own. */
#include <fcntl.h>
#include <gmock/gmock.h>

#include "creation.h"
#include "support/faults.h"
#include "vos.h"

using namespace vostest;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr uint32_t kReserved = 0xDEADBEEF;
constexpr int kFailedChild = 42;

int32_t createWith(const char *path, int32_t in, int32_t out, int32_t err) {
    return vosProcessCreateWithNewFd(path, 50, kReserved, in, out, err);
}

int32_t create(const char *path) { return createWith(path, STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO); }

/* Creates a program as a careful application does: a child that has failed ends. */
int32_t createOrEndTheChild(const char *path) {
    const int32_t pid = create(path);
    if (pid == 0) _exit(kFailedChild);
    return pid;
}

std::string contentOf(const char *path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

int newFile(const char *path) { return open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0600); }

}  // namespace

TEST(CreationWithNewFd, TheProgramReadsAndWritesTheGivenDescriptors) {
    NEEDS(kOwnProgram);
    NEEDS(kRealTime);
    const Outcome outcome = run([] {
        provide(kDemo, "copy");
        const Pipe input;
        const int out = newFile("/tmp/out");
        const int err = newFile("/tmp/err");
        const int32_t pid = createWith(kDemo, input.from(), out, err);
        EXPECT_EQ(write(input.to(), "word", 4), 4);
        EXPECT_EQ(endOf(pid), "exit 0");
        for (const int fd : {input.from(), input.to(), out, err}) EXPECT_NE(fcntl(fd, F_GETFD), -1);
    });
    EXPECT_THAT(outcome.output, IsEmpty());
    EXPECT_EQ(contentOf("/tmp/out"), "out:word");
    EXPECT_EQ(contentOf("/tmp/err"), "err:demo");
}

TEST(CreationWithNewFd, TheGivenDescriptorsStayOpenInTheProgram) {
    NEEDS(kOwnProgram);
    NEEDS(kRealTime);
    run([] {
        provide(kDemo, "wait");
        const int given = open("/dev/null", O_RDWR);
        const int32_t pid = createWith(kDemo, given, given, given);
        const Started program{pid};
        const std::string directory = "/proc/" + std::to_string(pid) + "/fd/";
        ASSERT_TRUE(eventually([&] { return program.arguments().front() == "demo"; }));
        EXPECT_EQ(access((directory + std::to_string(given)).c_str(), F_OK), 0);
    });
}

TEST(CreationWithNewFd, TheDescriptorsArePutInPlaceInTheOrderInputOutputError) {
    NEEDS(kOwnProgram);
    NEEDS(kRealTime);
    const Outcome outcome = run([] {
        provide(kDemo, "copy");
        const Pipe input;
        EXPECT_EQ(write(input.to(), "word", 4), 4);
        const int err = newFile("/tmp/err");
        dup2(err, STDIN_FILENO);
        /* Once it is the input, descriptor 0 is the pipe: as output it names what the input has just become. */
        const int32_t pid = createWith(kDemo, input.from(), STDIN_FILENO, err);
        EXPECT_EQ(endOf(pid), "exit 0");
    });
    EXPECT_THAT(outcome.output, IsEmpty()) << "standard output was the reading end of a pipe";
    EXPECT_EQ(contentOf("/tmp/err"), "err:demo");
}

TEST(CreationWithNewFd, ADescriptorThatIsNotOpenLeavesTheStandardOneAsItWas) {
    NEEDS(kOwnProgram);
    NEEDS(kRealTime);
    const Outcome outcome = run([] {
        provide(kDemo, "tell");
        EXPECT_EQ(endOf(createWith(kDemo, -1, 4000, INT32_MAX)), "exit 0");
    });
    EXPECT_THAT(outcome.output, HasSubstr("[demo]"));
}

TEST(CreationWithNewFd, AFailingDup2IsNotExamined) {
    NEEDS(kOwnProgram);
    NEEDS(kRealTime);
    for (const int occurrence : {1, 2, 3}) {
        const Outcome outcome = run([occurrence] {
            provide(kDemo, "copy");
            ASSERT_EQ(dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO), STDIN_FILENO);
            dup2(STDOUT_FILENO, STDERR_FILENO);
            const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
            Faults::arm({.call = "dup2", .occurrence = occurrence});
            EXPECT_EQ(endOf(createWith(kDemo, nowhere, nowhere, nowhere)), "exit 0");
        });
        EXPECT_EQ(outcome.output, occurrence == 1 ? "" : occurrence == 2 ? "out:" : "err:demo");
    }
}

TEST(CreationWithNewFd, TheProgramHasItsNameAsItsOnlyArgument) {
    NEEDS(kOwnProgram);
    NEEDS(kRealTime);
    const auto told = [](const char *path) {
        return run([path] {
                   provide("/app/bin/demo", "tell");
                   ASSERT_EQ(chdir("/app/bin"), 0);
                   EXPECT_EQ(endOf(create(path)), "exit 0");
               })
            .output;
    };
    EXPECT_THAT(told(kDemo), HasSubstr(":[demo]"));
    EXPECT_THAT(told("demo"), HasSubstr(":[demo]"));
    EXPECT_THAT(told("..///bin//demo"), HasSubstr(":[demo]"));
}

TEST(CreationWithNewFd, ThePathIsOnlyRead) {
    NEEDS(kRealTime);
    /* basename() would cut the slashes off in place; a text constant cannot be written to. */
    const Outcome outcome = run([] { EXPECT_EQ(endOf(createOrEndTheChild("/app///")), "exit 42"); });
    EXPECT_THAT(outcome.output, HasSubstr("name /app/// execl failed errno:" + errnoText(EACCES) + "."));
}

TEST(CreationWithNewFd, TheProcessRunsRoundRobinWithItsPriority) {
    NEEDS(kOwnProgram);
    NEEDS(kRealTime);
    run([] {
        provide(kDemo, "wait");
        for (const int priority : {1, 50, 99}) {
            const Started program{vosProcessCreateWithNewFd(kDemo, priority, kReserved, 0, 1, 2)};
            EXPECT_EQ(program.policy(), SCHED_RR);
            EXPECT_EQ(program.priority(), priority);
        }
    });
}

TEST(CreationWithNewFd, APriorityOutsideOneToNinetyNineIsRefused) {
    const Outcome outcome = run([] {
        for (const int priority : {0, 100, -1, INT32_MIN, INT32_MAX})
            EXPECT_EQ(vosProcessCreateWithNewFd(kDemo, priority, kReserved, 0, 1, 2), VOS_ERR_PARAM);
    });
    EXPECT_THAT(outcome.messages(),
                AllOf(SizeIs(5), Each("vosProcessCreateWithNewFd:name /app/bin/demo iPriority invalid.")));
}

TEST(CreationWithNewFd, ANullPathIsRefused) {
    const Outcome outcome = run([] { EXPECT_EQ(create(nullptr), VOS_ERR_PARAM); });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosProcessCreateWithNewFd:parameter error."));
}

TEST(CreationWithNewFd, AMissingProgramReturnsZeroInTheChildAndTheIdInTheParent) {
    NEEDS(kRealTime);
    const Outcome outcome = run([] {
        vosDebugConfig(VOS_DEBUG_ERROR | VOS_DEBUG_TRACE);
        const int32_t pid = createOrEndTheChild("/app/missing");
        EXPECT_EQ(endOf(pid), "exit " + std::to_string(kFailedChild));
        dprintf(STDOUT_FILENO, "\r\n%d", pid);
    });
    std::vector<std::string> parent;
    std::vector<std::string> child;
    std::string childPid;
    for (const LogLine &line : splitLog(outcome.output)) {
        if (line.pid == 0) childPid = line.message;
        (line.pid == outcome.pid ? parent : child).push_back(line.message);
    }
    EXPECT_THAT(child,
                ElementsAre("vosProcessCreateWithNewFd:name /app/missing execl failed errno:" + errnoText(ENOENT) + ".",
                            "vosProcessCreateWithNewFd:end name /app/missing return 0.", childPid));
    EXPECT_THAT(parent, ElementsAre("vosProcessCreateWithNewFd:start.",
                                    "vosProcessCreateWithNewFd:end name /app/missing return " + childPid + "."));
}

TEST(CreationWithNewFd, TheFailedChildsLineGoesToItsNewOutput) {
    NEEDS(kRealTime);
    const Outcome outcome = run([] {
        const int out = newFile("/tmp/out");
        const int32_t pid = createWith("/app/missing", STDIN_FILENO, out, out);
        if (pid == 0) _exit(kFailedChild);
        EXPECT_EQ(endOf(pid), "exit " + std::to_string(kFailedChild));
    });
    EXPECT_THAT(outcome.output, IsEmpty());
    EXPECT_THAT(contentOf("/tmp/out"), HasSubstr("name /app/missing execl failed errno:" + errnoText(ENOENT) + "."));
}

TEST(CreationWithNewFd, WhatTheCreatorHadNotFlushedAppearsOnTheFailedChildsNewOutputToo) {
    const Outcome outcome = run([] {
        vosProcessInit("demo");
        printf("not flushed");
        const int out = newFile("/tmp/out");
        const int32_t pid = createWith("/app/missing", STDIN_FILENO, out, out);
        if (pid == 0) _exit(kFailedChild);
        while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR) continue; /* when it has ended, it has written */
    });
    EXPECT_THAT(contentOf("/tmp/out"), testing::StartsWith("not flushed\r\ndemo("));
    EXPECT_THAT(outcome.output, testing::StartsWith("not flushed"));
}

TEST(CreationWithNewFd, InTheFailedChildCaughtSignalsHaveTheirDefaultAction) {
    const Outcome outcome = run([] {
        vosDebugConfig(0);
        vosProcessRegTerminateProc([](int32_t) { say("the procedure"); });
        const int32_t pid = create("/app/missing");
        if (pid == 0) {
            raise(SIGTERM);
            _exit(kFailedChild);
        }
        EXPECT_EQ(endOf(-1), "no child"); /* reaps it */
        _exit(0);
    });
    EXPECT_THAT(outcome.output, IsEmpty());
}

TEST(CreationWithNewFd, APathLongerThanAnyFilesIsNoProgram) {
    NEEDS(kRealTime);
    for (const std::size_t length : {4095u, 4096u, 4097u, 100000u}) {
        const std::string path(length, 'x');
        const Outcome outcome = run([&path] { EXPECT_EQ(endOf(createOrEndTheChild(path.c_str())), "exit 42"); });
        EXPECT_THAT(outcome.output, HasSubstr(" vosProcessCreateWithNewFd:name xxx"));
    }
}

TEST(CreationWithNewFd, WithoutTheRightTheProcessRunsUnderTheInheritedPolicy) {
    NEEDS(kOwnProgram);
    const Outcome outcome = run([] {
        provide(kDemo, "tell");
        giveUpRealTime();
        EXPECT_EQ(create(kDemo), VOS_ERROR);
        endOf(-1);
        EXPECT_EQ(waitpid(-1, nullptr, 0), -1);
    });
    EXPECT_THAT(outcome.output, HasSubstr("policy " + std::to_string(SCHED_OTHER) + ":[demo]"));
    EXPECT_THAT(outcome.output,
                HasSubstr(" vosProcessCreateWithNewFd:name /app/bin/demo sched_setscheduler failed errno:" +
                          errnoText(EPERM) + "."));
}

TEST(CreationWithNewFd, EachFailingCallOfTheParentHasItsResultAndLineAndKeepsNothing) {
    NEEDS(kOwnProgram);
    NEEDS(kRealTime);
    const auto attempts = failEachCall([] { provide(kDemo, "end"); }, [] { return long{create(kDemo)}; });
    ASSERT_EQ(attempts.size(), 2u);
    expectNothingKept(attempts);
    EXPECT_EQ(at(attempts, "fork#1").result, VOS_ERR_FORK);
    EXPECT_THAT(at(attempts, "fork#1").messages,
                ElementsAre("vosProcessCreateWithNewFd:name /app/bin/demo fork failed."));
    EXPECT_EQ(at(attempts, "sched_setscheduler#1").result, VOS_ERROR);
    EXPECT_THAT(at(attempts, "sched_setscheduler#1").messages,
                ElementsAre("vosProcessCreateWithNewFd:name /app/bin/demo sched_setscheduler failed errno:" +
                            errnoText(EIO) + "."));
}
