/* SPDX-License-Identifier: MIT */
#include <fcntl.h>
#include <sys/file.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <thread>

#include "vos.h"
#include "vosFile/flash.h"

using namespace vostest;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

const char *const kPath = "/flash/data";
constexpr uint32_t kTrace = VOS_DEBUG_ERROR | VOS_DEBUG_TRACE;

int32_t readInto(std::string &buffer, const char *path = kPath) {
    return vosFileRead(path, buffer.data(), size32(buffer));
}
int32_t writeFrom(const std::string &buffer, const char *path = kPath) {
    return vosFileWrite(path, buffer.data(), size32(buffer));
}

}  // namespace

TEST(FileRead, AMissingFileGivesItsCodeAndALineAtTraceLevelOnly) {
    const Outcome quiet = run([] {
        std::string buffer(8, '.');
        EXPECT_EQ(readInto(buffer), VOS_ERR_NO_FILE);
    });
    EXPECT_THAT(quiet.messages(), IsEmpty());
    const Outcome traced = run([] {
        vosDebugConfig(kTrace);
        std::string buffer(8, '.');
        EXPECT_EQ(readInto(buffer), VOS_ERR_NO_FILE);
    });
    EXPECT_THAT(traced.messages(),
                ElementsAre("vosFileRead:start name /flash/data ulBufLen 8.",
                            "vosFileRead:file /flash/data does not exist errno:" + errnoText(ENOENT) + "."));
}

TEST(FileRead, AnEmptyFileGivesZero) {
    putFile(kPath, "");
    run([] {
        std::string buffer(8, '.');
        EXPECT_EQ(readInto(buffer), 0);
        EXPECT_EQ(buffer, "........");
    });
}

TEST(FileRead, ABufferShorterThanTheFileIsFilledExactly) {
    putFile(kPath, "0123456789");
    run([] {
        std::string buffer(12, '.');
        EXPECT_EQ(vosFileRead(kPath, buffer.data(), 4), 4);
        EXPECT_EQ(buffer, "0123........");
    });
}

TEST(FileRead, AShortFileIsNoErrorAndTheBufferIsNotTerminated) {
    putFile(kPath, "012");
    const Outcome outcome = run([] {
        vosDebugConfig(kTrace);
        std::string buffer(6, '.');
        EXPECT_EQ(readInto(buffer), 3);
        EXPECT_EQ(buffer, "012...");
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosFileRead:start name /flash/data ulBufLen 6.", "vosFileRead:end return 0."));
}

TEST(FileRead, NullBufferAndNullPathAreRefused) {
    const Outcome outcome = run([] {
        EXPECT_EQ(vosFileRead(kPath, nullptr, 4), VOS_ERR_PARAM);
        std::string buffer(4, '.');
        EXPECT_EQ(readInto(buffer, nullptr), VOS_ERR_PARAM);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosFileRead:parameter error.", "vosFileRead:parameter error."));
}

TEST(FileRead, APathWithPercentSignsIsShownAsItIs) {
    const Outcome outcome = run([] {
        vosDebugConfig(kTrace);
        std::string buffer(4, '.');
        EXPECT_EQ(readInto(buffer, "/flash/%s%n"), VOS_ERR_NO_FILE);
    });
    EXPECT_EQ(outcome.messages().at(0), "vosFileRead:start name /flash/%s%n ulBufLen 4.");
}

TEST(FileRead, EachFailingCall) {
    const auto attempts = failEachCall([] { putFile(kPath, "content"); },
                                       [] {
                                           std::string buffer(16, '.');
                                           return readInto(buffer);
                                       });
    expectNothingKept(attempts);
    EXPECT_THAT(namesOf(attempts), ElementsAre("access#1", "open#1", "flock#1", "read#1", "flock#2", "close#1"));
    expectLines(attempts, "access#1", VOS_ERR_NO_FILE, {});
    expectLines(attempts, "open#1", VOS_ERROR, {failedLine("vosFileRead:open file /flash/data")});
    expectLines(attempts, "flock#1", 7, {failedLine("vosFileRead:lock file /flash/data")});
    expectLines(attempts, "read#1", VOS_ERROR, {failedLine("vosFileRead:read file /flash/data")});
    expectLines(attempts, "flock#2", 7, {failedLine("vosFileRead:unlock file /flash/data")});
    expectLines(attempts, "close#1", 7, {});
}

TEST(FileRead, AFailedReadClosesWithoutUnlocking) {
    putFile(kPath, "content");
    run([] {
        vosProcessGetName(); /* reads the name from a file, only once */
        std::string buffer(16, '.');
        Faults::arm({.call = "read"});
        EXPECT_THAT(Faults::record([&] { EXPECT_EQ(readInto(buffer), VOS_ERROR); }),
                    ElementsAre("access", "open", "flock", "read", "close"));
    });
}

TEST(FileWrite, TheBufferReplacesTheFile) {
    putFile(kPath, "a longer content than the next");
    run([] { EXPECT_EQ(writeFrom("next"), VOS_OK); });
    EXPECT_EQ(fileContent(kPath), "next");
}

TEST(FileWrite, LengthZeroLeavesAnEmptyFileAndSucceeds) {
    putFile(kPath, "content");
    run([] { EXPECT_EQ(vosFileWrite_m(kPath, "x", 0, 0600), VOS_OK); });
    EXPECT_EQ(fileContent(kPath), "");
}

TEST(FileWrite, ANewFileGetsTheModeAskedForAndOtherwise0666) {
    run([] {
        umask(0);
        EXPECT_EQ(writeFrom("x"), VOS_OK);
        EXPECT_EQ(vosFileWrite_m("/flash/other", "x", 1, 0640), VOS_OK);
    });
    EXPECT_EQ(modeOf(kPath), 0666u);
    EXPECT_EQ(modeOf("/flash/other"), 0640u);
}

TEST(FileWrite, TheUmaskIsTakenFromTheModeAndSetIdBitsAreKept) {
    run([] {
        umask(077);
        EXPECT_EQ(vosFileWrite_m(kPath, "x", 1, 0644), VOS_OK);
        umask(0);
        EXPECT_EQ(vosFileWrite_m("/flash/other", "x", 1, 04755), VOS_OK);
        EXPECT_EQ(vosFileWrite_m(kPath, "x", 1, 0666), VOS_OK);
    });
    EXPECT_EQ(modeOf(kPath), 0600u) << "an existing file keeps its own";
    EXPECT_EQ(modeOf("/flash/other"), modeAfterAWrite(04755));
}

TEST(FileWrite, ItIsFlushedInOrderAfterTheLockIsReleased) {
    run([] {
        EXPECT_THAT(Faults::record([] { writeFrom("x"); }),
                    ElementsAre("open", "flock", "ftruncate", "write", "flock", "fsync", "syncfs", "close"));
    });
}

TEST(FileWrite, TraceLinesNameTheModeCall) {
    const Outcome outcome = run([] {
        vosDebugConfig(kTrace);
        writeFrom("x");
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosFileWrite_m:start name /flash/data ulBufLen 1.", "vosFileWrite_m:end return 0."));
}

TEST(FileWrite, NullBufferAndNullPathAreRefused) {
    const Outcome outcome = run([] {
        EXPECT_EQ(vosFileWrite(kPath, nullptr, 1), VOS_ERR_PARAM);
        EXPECT_EQ(vosFileWrite_m(nullptr, "x", 1, 0666), VOS_ERR_PARAM);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosFileWrite_m:parameter error.", "vosFileWrite_m:parameter error."));
    EXPECT_FALSE(present(kPath));
}

TEST(FileWrite, AShortWriteIsLoggedAndSucceeds) {
    const Attempt attempt = failCall(
        {.call = "write", .shortTo = 3}, [] {}, [] { return writeFrom("content"); });
    EXPECT_EQ(attempt.result, VOS_OK);
    EXPECT_THAT(attempt.messages, ElementsAre("vosFileWrite_m:write file /flash/data need 7 but only write 3."));
    EXPECT_EQ(fileContent(kPath), "con");
}

TEST(FileWrite, EachFailingCall) {
    const auto attempts = failEachCall([] { putFile(kPath, "before"); }, [] { return writeFrom("content"); });
    expectNothingKept(attempts);
    const std::string unlockAfterClose = failedLine("vosFileWrite_m:unlock file /flash/data", EBADF);
    EXPECT_THAT(attempts, SizeIs(8));
    expectLines(attempts, "open#1", VOS_ERROR, {failedLine("vosFileWrite_m:open file /flash/data")});
    expectLines(attempts, "flock#1", VOS_OK, {failedLine("vosFileWrite_m:lock file /flash/data")});
    expectLines(attempts, "ftruncate#1", VOS_ERROR,
                {failedLine("vosFileWrite_m:ftruncate file /flash/data"), unlockAfterClose});
    expectLines(attempts, "write#1", VOS_ERROR,
                {failedLine("vosFileWrite_m:write file /flash/data"), unlockAfterClose});
    expectLines(attempts, "flock#2", VOS_OK, {failedLine("vosFileWrite_m:unlock file /flash/data")});
    expectLines(attempts, "fsync#1", VOS_OK, {});
    expectLines(attempts, "syncfs#1", VOS_OK, {});
    expectLines(attempts, "close#1", VOS_OK, {});
}

TEST(FileWrite, AfterAnEarlyCloseTheRemainingCallsAreStillMade) {
    run([] {
        vosProcessGetName(); /* reads the name from a file, only once */
        Faults::arm({.call = "write"});
        EXPECT_THAT(Faults::record([] { writeFrom("x"); }),
                    ElementsAre("open", "flock", "ftruncate", "write", "close", "flock", "fsync", "syncfs"));
        Faults::arm({.call = "ftruncate"});
        EXPECT_THAT(Faults::record([] { writeFrom("x"); }),
                    ElementsAre("open", "flock", "ftruncate", "close", "flock", "fsync", "syncfs"));
    });
}

/* Another thread opens and locks a file repeatedly, and so gets the number that the failed write has closed. */
TEST(FileWrite, AfterAnEarlyCloseNoDescriptorOfAnotherThreadIsTouched) {
    constexpr int kRounds = 300;
    const Outcome outcome = run([] {
        std::atomic<bool> done = false;
        std::thread other([&] {
            while (!done) {
                const int fd = open("/tmp/other", O_RDWR | O_CREAT, 0600);
                EXPECT_EQ(flock(fd, LOCK_EX), 0);
                const int second = open("/tmp/other", O_RDWR);
                EXPECT_EQ(flock(second, LOCK_EX | LOCK_NB), -1) << "the lock was released by somebody else";
                EXPECT_EQ(close(second), 0);
                EXPECT_EQ(close(fd), 0) << "the descriptor was closed by somebody else";
            }
        });
        for (int i = 0; i < kRounds; ++i) {
            Faults::arm({.call = "write"});
            EXPECT_EQ(writeFrom("x"), VOS_ERROR);
            EXPECT_TRUE(Faults::disarm());
        }
        done = true;
        other.join();
    });
    EXPECT_TRUE(outcome.exited(0));
    EXPECT_THAT(outcome.messages(), SizeIs(2 * kRounds)) << "each failure is followed by its unlock line";
}

TEST(FileWrite, ErrnoOfTheFailedCallIsLeft) {
    run([] {
        Faults::arm({.call = "write", .error = ENOSPC});
        EXPECT_EQ(writeFrom("x"), VOS_ERROR);
        EXPECT_EQ(errno, ENOSPC);
    });
}

TEST(FileLock, AReaderWaitsForTheWriterOfAnotherProcess) {
    putFile(kPath, "old");
    Process writer = start([] {
        const int fd = open(kPath, O_RDWR);
        ASSERT_EQ(flock(fd, LOCK_EX), 0);
        ready();
        pause();
    });
    writer.awaitReady();
    Process reader = start([] {
        ready();
        std::string buffer(3, '.');
        EXPECT_EQ(readInto(buffer), 3);
        EXPECT_EQ(buffer, "new");
    });
    reader.awaitReady();
    EXPECT_TRUE(eventually([&] {
        std::ifstream locks("/proc/locks");
        return std::string{std::istreambuf_iterator<char>(locks), {}}.find("->") != std::string::npos;
    })) << "the reader does not wait";
    putFile(kPath, "new");
    writer.send(SIGKILL);
    EXPECT_TRUE(writer.finish().killedBy(SIGKILL));
    EXPECT_TRUE(reader.finish().exited(0));
}

TEST(FileLock, AWriterWaitsForAReaderAndTwoReadersDoNotWait) {
    putFile(kPath, "old");
    Process reader = start([] {
        const int fd = open(kPath, O_RDONLY);
        ASSERT_EQ(flock(fd, LOCK_SH), 0);
        ready();
        pause();
    });
    reader.awaitReady();
    run([] {
        std::string buffer(3, '.');
        EXPECT_EQ(readInto(buffer), 3);
    });
    Process writer = start([] { EXPECT_EQ(writeFrom("new"), VOS_OK); });
    EXPECT_TRUE(eventually([&] {
        std::ifstream locks("/proc/locks");
        return std::string{std::istreambuf_iterator<char>(locks), {}}.find("->") != std::string::npos;
    })) << "the writer does not wait";
    EXPECT_EQ(fileContent(kPath), "old");
    reader.send(SIGKILL);
    reader.finish();
    EXPECT_TRUE(writer.finish().exited(0));
    EXPECT_EQ(fileContent(kPath), "new");
}

TEST(FileLock, ASignalWithoutRestartEndsTheWaitAndTheWriteGoesOnWithoutTheLock) {
    putFile(kPath, "old");
    Process reader = start([] {
        const int fd = open(kPath, O_RDONLY);
        ASSERT_EQ(flock(fd, LOCK_SH), 0);
        ready();
        pause();
    });
    reader.awaitReady();
    const auto write = [](int flags) {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        action.sa_flags = flags;
        ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
        const itimerval often{{0, 5000}, {0, 5000}}; /* repeated, because the first signal may come before the wait */
        ASSERT_EQ(setitimer(ITIMER_REAL, &often, nullptr), 0);
        EXPECT_EQ(writeFrom("new"), VOS_OK);
    };
    const Outcome interrupted = run([&] { write(0); });
    EXPECT_THAT(interrupted.messages(), ElementsAre(failedLine("vosFileWrite_m:lock file /flash/data", EINTR)));
    EXPECT_EQ(fileContent(kPath), "new");
    putFile(kPath, "old");
    Process writer = start([&] { write(SA_RESTART); });
    EXPECT_TRUE(eventually([] { return fileContent("/proc/locks").find("->") != std::string::npos; }));
    EXPECT_EQ(fileContent(kPath), "old");
    reader.send(SIGKILL);
    reader.finish();
    EXPECT_THAT(writer.finish().messages(), IsEmpty());
    EXPECT_EQ(fileContent(kPath), "new");
}

TEST(FileCopy, OntoItselfKeepsTheContent) {
    putFile(kPath, "content");
    run([] { EXPECT_EQ(vosFileCopy(kPath, kPath), VOS_OK); });
    EXPECT_EQ(fileContent(kPath), "content");
}

TEST(FileCopy, OntoAnEmptyDirectoryReplacesItAndOntoAFullOneFails) {
    putFile(kPath, "content");
    std::filesystem::create_directories("/flash/empty");
    std::filesystem::create_directories("/flash/full/child");
    const Outcome outcome = run([] {
        EXPECT_EQ(vosFileCopy(kPath, "/flash/empty"), VOS_OK);
        EXPECT_EQ(vosFileCopy(kPath, "/flash/full"), VOS_ERROR);
    });
    EXPECT_EQ(fileContent("/flash/empty"), "content");
    EXPECT_THAT(outcome.messages(), ElementsAre(failedLine("vosFileDelete:remove file /flash/full", ENOTEMPTY),
                                                failedLine("vosFileCopy:open file /flash/full", EISDIR)));
}

TEST(FileCopy, ADirectoryAsTheSourceGivesAnEmptyFile) {
    std::filesystem::create_directory("/flash/directory");
    const Outcome outcome = run([] { EXPECT_EQ(vosFileCopy("/flash/directory", "/flash/copy"), VOS_OK); });
    EXPECT_THAT(outcome.messages(), IsEmpty());
    EXPECT_EQ(fileContent("/flash/copy"), "");
}

TEST(FileCopy, ADestinationThatThenCannotBeOpenedIsGone) {
    const auto prepare = [] {
        putFile(kPath, "content");
        putFile("/flash/copy", "before");
    };
    const auto copy = [] { return vosFileCopy(kPath, "/flash/copy"); };
    EXPECT_EQ(failCall({.call = "open", .occurrence = 2}, prepare, copy).result, VOS_ERROR);
    EXPECT_FALSE(present("/flash/copy"));
}

TEST(FileCopy, OntoALongerDestinationLeavesExactlyTheSourcesBytes) {
    putFile(kPath, "short");
    putFile("/flash/copy", "much longer than the source");
    run([] { EXPECT_EQ(vosFileCopy(kPath, "/flash/copy"), VOS_OK); });
    EXPECT_EQ(fileContent("/flash/copy"), "short");
}

TEST(FileCopy, MoreThanOneBufferAndThePermissionsOfANewFile) {
    std::string content(0x200000 + 4097, 'x');
    for (std::size_t i = 0; i < content.size(); i += 509) content[i] = static_cast<char>(i);
    putFile(kPath, content);
    run([] {
        umask(0);
        EXPECT_THAT(Faults::record([] { EXPECT_EQ(vosFileCopy(kPath, "/app/copy"), VOS_OK); }),
                    ElementsAre("access", "malloc", "open", "remove", "open", "read", "write", "read", "write", "read",
                                "fsync", "syncfs", "close", "close"));
    });
    EXPECT_EQ(fileContent("/app/copy"), content);
    EXPECT_EQ(modeOf("/app/copy"), 0666u);
}

TEST(FileCopy, AMissingSourceGivesItsCodeAndLeavesTheDestination) {
    putFile("/flash/copy", "kept");
    const Outcome outcome = run([] {
        vosDebugConfig(kTrace);
        EXPECT_EQ(vosFileCopy(kPath, "/flash/copy"), VOS_ERR_NO_FILE);
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosFileCopy:start name /flash/data name2 /flash/copy.",
                            "vosFileCopy:file /flash/data does not exist errno:" + errnoText(ENOENT) + "."));
    EXPECT_EQ(fileContent("/flash/copy"), "kept");
}

TEST(FileCopy, EachFailingCall) {
    const auto attempts = failEachCall(
        [] {
            putFile(kPath, "content");
            putFile("/flash/copy", "before");
        },
        [] { return vosFileCopy(kPath, "/flash/copy"); });
    expectNothingKept(attempts);
    EXPECT_THAT(attempts, SizeIs(12));
    expectLines(attempts, "access#1", VOS_ERR_NO_FILE, {});
    expectLines(attempts, "malloc#1", VOS_ERR_MEMORY, {"vosFileCopy:vosMalloc failed."});
    expectLines(attempts, "open#1", VOS_ERROR, {failedLine("vosFileCopy:open file /flash/data")});
    expectLines(attempts, "remove#1", VOS_OK, {failedLine("vosFileDelete:remove file /flash/copy")});
    expectLines(attempts, "open#2", VOS_ERROR, {failedLine("vosFileCopy:open file /flash/copy")});
    for (const char *const call : {"read#1", "read#2", "write#1", "fsync#1", "syncfs#1", "close#1", "close#2"})
        expectLines(attempts, call, VOS_OK, {});
}

TEST(FileCopy, NullPathsAreRefused) {
    putFile(kPath, "content");
    const Outcome outcome = run([] {
        EXPECT_EQ(vosFileCopy(nullptr, "/flash/copy"), VOS_ERROR);
        EXPECT_EQ(vosFileCopy(kPath, nullptr), VOS_ERROR);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosFileCopy:parameter error.", "vosFileCopy:parameter error."));
}
