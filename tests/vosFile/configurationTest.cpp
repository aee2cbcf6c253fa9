/* SPDX-License-Identifier: MIT */
/* The saved configuration and the saved syslog. */
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "vos.h"
#include "vosFile/flash.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

const char *const kConfiguration = "/flash/zebcfg";
const char *const kSyslog = "/flash/syslog";
const char *const kCoreSettings = "/flash/core-file";
constexpr uint32_t kTrace = VOS_DEBUG_ERROR | VOS_DEBUG_TRACE;

int32_t saveConfiguration(const std::string &bytes) { return vosFileCfgWrite(bytes.data(), size32(bytes)); }
int32_t saveSyslog(const std::string &bytes) { return vosFileSyslogWrite(bytes.data(), size32(bytes)); }

/* Reads the configuration and releases it. Returns the result. */
long loadConfiguration() {
    char *buffer = nullptr;
    uint32_t length = 0;
    const int32_t result = vosFileCfgRead(&buffer, &length);
    if (result != VOS_OK) {
        EXPECT_EQ(buffer, nullptr);
        EXPECT_EQ(length, 0u);
    }
    vosFileCfgFree(buffer);
    return result;
}

long loadSyslog() {
    std::string buffer(16, '.');
    return vosFileSyslogRead(buffer.data(), size32(buffer));
}

}  // namespace

TEST(Configuration, WhatIsSavedIsLoadedWith128SpareBytes) {
    const std::string bytes("any\0bytes", 9);
    run([&] {
        EXPECT_EQ(saveConfiguration(bytes), VOS_OK);
        char *buffer = nullptr;
        uint32_t length = 0;
        EXPECT_EQ(vosFileCfgRead(&buffer, &length), VOS_OK);
        ASSERT_EQ(length, 9u);
        EXPECT_EQ(std::string(buffer, length), bytes);
        memset(buffer + length, 'x', 128);
        EXPECT_EQ(vosFileCfgFree(buffer), VOS_OK);
    });
    EXPECT_EQ(fileContent(kConfiguration), bytes);
}

TEST(Configuration, ReadWithNoFileGivesItsCodeAndClearsBothOutputs) {
    const Outcome outcome = run([] {
        vosDebugConfig(kTrace);
        char text[] = "text";
        char *buffer = text;
        uint32_t length = 7;
        EXPECT_EQ(vosFileCfgRead(&buffer, &length), VOS_ERR_NO_FILE);
        EXPECT_EQ(buffer, nullptr);
        EXPECT_EQ(length, 0u);
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosFileCfgRead:start.",
                            "vosFileCfgRead:cfg file does not exist errno:" + errnoText(ENOENT) + "."));
    EXPECT_THAT(run([] { loadConfiguration(); }).messages(), IsEmpty());
}

TEST(Configuration, AnEmptyFileGivesTheSpareBytesAndLengthZero) {
    putFile(kConfiguration, "");
    run([] {
        char *buffer = nullptr;
        uint32_t length = 7;
        EXPECT_EQ(vosFileCfgRead(&buffer, &length), VOS_OK);
        ASSERT_NE(buffer, nullptr);
        EXPECT_EQ(length, 0u);
        memset(buffer, 'x', 128);
        vosFileCfgFree(buffer);
    });
}

TEST(Configuration, WriteOfLengthZeroLeavesAnEmptyFile) {
    putFile(kConfiguration, "content");
    run([] { EXPECT_EQ(vosFileCfgWrite("x", 0), VOS_OK); });
    EXPECT_EQ(fileContent(kConfiguration), "");
}

TEST(Configuration, NullPointersAreRefused) {
    const Outcome outcome = run([] {
        char *buffer = nullptr;
        uint32_t length = 7;
        EXPECT_EQ(vosFileCfgRead(nullptr, &length), VOS_ERR_PARAM);
        EXPECT_EQ(length, 7u);
        EXPECT_EQ(vosFileCfgRead(&buffer, nullptr), VOS_ERR_PARAM);
        EXPECT_EQ(vosFileCfgWrite(nullptr, 1), VOS_ERR_PARAM);
        EXPECT_EQ(vosFileCfgFree(nullptr), VOS_OK);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosFileCfgRead:parameter error.", "vosFileCfgRead:parameter error.",
                                                "vosFileCfgWrite:parameter error."));
}

TEST(Configuration, TheCallsTraceTheirSteps) {
    const Outcome outcome = run([] {
        vosDebugConfig(kTrace);
        saveConfiguration("x");
        EXPECT_EQ(vosFileCfgExist(), 1);
        loadConfiguration();
        EXPECT_EQ(vosFileCfgDelete(), VOS_OK);
        EXPECT_EQ(vosFileCfgExist(), 0);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosFileCfgWrite:start ulBufLen 1.", "vosFileCfgWrite:end return 0.",
                                                "vosFileCfgExist:end return 1.", "vosFileCfgRead:start.",
                                                "vosFileCfgRead:end return 0.", "vosFileCfgFree:end return 0.",
                                                "vosFileCfgDelete:end return 0.", "vosFileCfgExist:end return 0."));
}

TEST(Configuration, DeleteRemovesTheSettingsOfCoreDumpsAsWell) {
    putFile(kConfiguration, "x");
    putFile(kCoreSettings, "x");
    run([] { EXPECT_EQ(vosFileCfgDelete(), VOS_OK); });
    EXPECT_FALSE(present(kConfiguration));
    EXPECT_FALSE(present(kCoreSettings));
}

TEST(Configuration, DeleteWhenNeitherFileExistsIsSilent) {
    const Outcome outcome = run([] { EXPECT_EQ(vosFileCfgDelete(), VOS_OK); });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(Configuration, AnotherPathRedirectsAllCallsAndDeleteStillRemovesTheCoreSettings) {
    putFile(kConfiguration, "untouched");
    putFile(kCoreSettings, "x");
    run([] {
        szVosCfgFileName = "/app/other";
        EXPECT_EQ(vosFileCfgExist(), 0);
        EXPECT_EQ(saveConfiguration("other"), VOS_OK);
        EXPECT_EQ(fileContent("/app/other"), "other");
        EXPECT_EQ(vosFileCfgExist(), 1);
        EXPECT_EQ(loadConfiguration(), VOS_OK);
        EXPECT_EQ(vosFileCfgDelete(), VOS_OK);
    });
    EXPECT_FALSE(present("/app/other"));
    EXPECT_FALSE(present(kCoreSettings));
    EXPECT_EQ(fileContent(kConfiguration), "untouched");
}

TEST(Configuration, ANullPathFailsEveryCall) {
    const Outcome outcome = run([] {
        szVosCfgFileName = nullptr;
        EXPECT_EQ(vosFileCfgExist(), 0);
        EXPECT_EQ(loadConfiguration(), VOS_ERR_NO_FILE);
        EXPECT_EQ(saveConfiguration("x"), VOS_ERROR);
        EXPECT_EQ(vosFileCfgDelete(), VOS_OK);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(failedLine("vosFileCfgWrite:open cfg file", EFAULT),
                                                failedLine("vosFileCfgDelete:remove cfg file", EFAULT)));
}

TEST(Configuration, EachFailingCallOfARead) {
    const auto attempts = failEachCall([] { putFile(kConfiguration, "content"); }, loadConfiguration);
    expectNothingKept(attempts);
    EXPECT_THAT(namesOf(attempts),
                ElementsAre("access#1", "stat#1", "malloc#1", "open#1", "flock#1", "read#1", "flock#2", "close#1"));
    expectLines(attempts, "access#1", VOS_ERR_NO_FILE, {});
    expectLines(attempts, "stat#1", VOS_ERROR, {failedLine("vosFileCfgRead:stat cfg file")});
    expectLines(attempts, "malloc#1", VOS_ERR_MEMORY, {"vosFileCfgRead:malloc failed."});
    expectLines(attempts, "open#1", VOS_ERROR, {failedLine("vosFileCfgRead:open cfg file")});
    expectLines(attempts, "flock#1", VOS_OK, {failedLine("vosFileCfgRead:lock cfg file")});
    expectLines(attempts, "read#1", VOS_ERROR, {failedLine("vosFileCfgRead:read cfg file")});
    expectLines(attempts, "flock#2", VOS_OK, {failedLine("vosFileCfgRead:unlock cfg file")});
    expectLines(attempts, "close#1", VOS_OK, {});
}

TEST(Configuration, AFailedReadUnlocksAndCloses) {
    putFile(kConfiguration, "content");
    run([] {
        vosProcessGetName(); /* reads the name from a file, only once */
        Faults::arm({.call = "read"});
        EXPECT_THAT(Faults::record([] { loadConfiguration(); }),
                    ElementsAre("access", "stat", "malloc", "open", "flock", "read", "flock", "close"));
    });
}

TEST(Configuration, AShortReadIsLoggedAndTheLengthIsTheSizeAskedBefore) {
    putFile(kConfiguration, "content");
    const Outcome outcome = run([] {
        char *buffer = nullptr;
        uint32_t length = 0;
        Faults::arm({.call = "read", .shortTo = 3});
        EXPECT_EQ(vosFileCfgRead(&buffer, &length), VOS_OK);
        ASSERT_EQ(length, 7u);
        EXPECT_EQ(std::string(buffer, length), std::string("con\0\0\0\0", 7));
        vosFileCfgFree(buffer);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosFileCfgRead:read cfg file need 7 but only read 3."));
}

/* The reader asks for the size, and then waits for a writer that makes the file longer, shorter or empty. */
TEST(Configuration, AFileThatChangesWhileItsReaderWaitsComesWithTheOldLength) {
    const auto readWhile = [](const std::string &written) {
        putFile(kConfiguration, "0123456789");
        const int fd = open(kConfiguration, O_RDWR);
        EXPECT_EQ(flock(fd, LOCK_EX), 0);
        Process reader = start([=] {
            char *buffer = nullptr;
            uint32_t length = 0;
            EXPECT_EQ(vosFileCfgRead(&buffer, &length), VOS_OK);
            ASSERT_EQ(length, 10u);
            std::string expected = written;
            expected.resize(10, '\0');
            EXPECT_EQ(std::string(buffer, length), expected);
            vosFileCfgFree(buffer);
        });
        EXPECT_TRUE(eventually([] { return fileContent("/proc/locks").find("->") != std::string::npos; }));
        putFile(kConfiguration, written);
        EXPECT_EQ(flock(fd, LOCK_UN), 0); /* closing it would not unlock, because the reader has inherited it */
        close(fd);
        return reader.finish().messages();
    };
    EXPECT_THAT(readWhile("abcdefghijklmnopqrstuvwxyz"), IsEmpty());
    EXPECT_THAT(readWhile("abc"), ElementsAre("vosFileCfgRead:read cfg file need 10 but only read 3."));
    EXPECT_THAT(readWhile(""), ElementsAre("vosFileCfgRead:read cfg file need 10 but only read 0."));
}

TEST(Configuration, AFileOf4GiBDoesNotFitIntoMemory) {
    putFile(kConfiguration, "");
    std::filesystem::resize_file(kConfiguration, 0x100000000 - 128);
    const Outcome outcome = run([] { EXPECT_EQ(loadConfiguration(), VOS_ERR_MEMORY); });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosFileCfgRead:malloc failed."));
}

TEST(Configuration, EachFailingCallOfAWrite) {
    const auto attempts =
        failEachCall([] { putFile(kConfiguration, "before it"); }, [] { return saveConfiguration("content"); });
    expectNothingKept(attempts);
    EXPECT_THAT(namesOf(attempts), ElementsAre("open#1", "flock#1", "ftruncate#1", "write#1", "flock#2", "fsync#1",
                                               "syncfs#1", "close#1"));
    expectLines(attempts, "open#1", VOS_ERROR, {failedLine("vosFileCfgWrite:open cfg file")});
    expectLines(attempts, "flock#1", VOS_OK, {failedLine("vosFileCfgWrite:lock cfg file")});
    expectLines(attempts, "ftruncate#1", VOS_OK, {});
    expectLines(attempts, "write#1", VOS_ERROR, {failedLine("vosFileCfgWrite:write cfg file")});
    expectLines(attempts, "flock#2", VOS_OK, {failedLine("vosFileCfgWrite:unlock cfg file")});
    for (const char *const call : {"fsync#1", "syncfs#1", "close#1"}) expectLines(attempts, call, VOS_OK, {});
}

TEST(Configuration, AFailedTruncationIsIgnoredAndTheWriteFollows) {
    const Attempt attempt = failCall(
        {.call = "ftruncate"}, [] { putFile(kConfiguration, "before it"); },
        [] { return saveConfiguration("content"); });
    EXPECT_THAT(attempt.messages, IsEmpty());
    EXPECT_EQ(fileContent(kConfiguration), "contentit");
}

TEST(Configuration, AFailedWriteStillUnlocksAndFlushes) {
    run([] {
        vosProcessGetName(); /* reads the name from a file, only once */
        Faults::arm({.call = "write"});
        EXPECT_THAT(Faults::record([] { saveConfiguration("x"); }),
                    ElementsAre("open", "flock", "ftruncate", "write", "flock", "fsync", "syncfs", "close"));
    });
}

TEST(Configuration, AShortWriteIsLoggedAndSucceeds) {
    const Attempt attempt = failCall(
        {.call = "write", .shortTo = 2}, [] {}, [] { return saveConfiguration("content"); });
    EXPECT_EQ(attempt.result, VOS_OK);
    EXPECT_THAT(attempt.messages, ElementsAre("vosFileCfgWrite:write cfg file need 7 but only write 2."));
}

TEST(Configuration, EachFailingCallOfADelete) {
    const auto attempts = failEachCall([] { putFile(kConfiguration, "x"); }, [] { return vosFileCfgDelete(); });
    EXPECT_THAT(attempts, SizeIs(2));
    expectLines(attempts, "remove#1", VOS_OK, {failedLine("vosFileCfgDelete:remove cfg file")});
    expectLines(attempts, "remove#2", VOS_OK, {});
}

TEST(Syslog, WhatIsSavedIsLoaded) {
    const Outcome outcome = run([] {
        vosDebugConfig(kTrace);
        EXPECT_EQ(saveSyslog("a line"), 6);
        std::string buffer(10, '.');
        EXPECT_EQ(vosFileSyslogRead(buffer.data(), 10), 6);
        EXPECT_EQ(buffer, "a line....");
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosFileSyslogWrite:start ulBufLen 6.", "vosFileSyslogWrite:end return 6.",
                            "vosFileSyslogRead:start ulBufLen 10.", "vosFileSyslogRead:end return 6."));
    EXPECT_EQ(fileContent(kSyslog), "a line");
}

TEST(Syslog, ReadWithNoFileGivesItsCodeAndALineAtTraceLevelOnly) {
    const Outcome outcome = run([] {
        EXPECT_EQ(loadSyslog(), VOS_ERR_NO_FILE);
        vosDebugConfig(kTrace);
        EXPECT_EQ(loadSyslog(), VOS_ERR_NO_FILE);
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosFileSyslogRead:start ulBufLen 16.",
                            "vosFileSyslogRead:syslog file does not exist errno:" + errnoText(ENOENT) + "."));
}

TEST(Syslog, AnEmptyFileGivesZero) {
    putFile(kSyslog, "");
    run([] { EXPECT_EQ(loadSyslog(), 0); });
}

TEST(Syslog, WriteOfZeroBytesLeavesAnEmptyFileAndGivesZero) {
    putFile(kSyslog, "content");
    run([] { EXPECT_EQ(vosFileSyslogWrite("x", 0), 0); });
    EXPECT_EQ(fileContent(kSyslog), "");
}

TEST(Syslog, ABufferSmallerThanTheFileIsFilledExactly) {
    putFile(kSyslog, "0123456789");
    run([] {
        std::string buffer(6, '.');
        EXPECT_EQ(vosFileSyslogRead(buffer.data(), 4), 4);
        EXPECT_EQ(buffer, "0123..");
    });
}

TEST(Syslog, NullBuffersAreRefusedAndAnotherPathIsTaken) {
    const Outcome outcome = run([] {
        EXPECT_EQ(vosFileSyslogRead(nullptr, 4), VOS_ERR_PARAM);
        EXPECT_EQ(vosFileSyslogWrite(nullptr, 4), VOS_ERR_PARAM);
        szVosSyslogFileName = "/app/log";
        EXPECT_EQ(saveSyslog("x"), 1);
        EXPECT_EQ(loadSyslog(), 1);
        szVosSyslogFileName = nullptr;
        EXPECT_EQ(loadSyslog(), VOS_ERR_NO_FILE);
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosFileSyslogRead:parameter error.", "vosFileSyslogWrite:parameter error."));
    EXPECT_FALSE(present(kSyslog));
}

TEST(Syslog, EachFailingCallOfARead) {
    const auto attempts = failEachCall(
        [] {
            vosProcessGetName(); /* reads the name from a file, only once */
            vosDebugConfig(kTrace);
            putFile(kSyslog, "content");
        },
        loadSyslog);
    expectNothingKept(attempts);
    const std::string begin = "vosFileSyslogRead:start ulBufLen 16.";
    const std::string end = "vosFileSyslogRead:end return 7.";
    EXPECT_THAT(attempts, SizeIs(6));
    expectLines(attempts, "open#1", VOS_ERROR, {begin, failedLine("vosFileSyslogRead:open syslog file")});
    expectLines(attempts, "flock#1", 7, {begin, failedLine("vosFileSyslogRead:lock syslog file"), end});
    expectLines(attempts, "read#1", VOS_ERROR,
                {begin, failedLine("vosFileSyslogRead:read syslog file"), "vosFileSyslogRead:end return -1."});
    expectLines(attempts, "flock#2", 7, {begin, failedLine("vosFileSyslogRead:unlock syslog file"), end});
    expectLines(attempts, "close#1", 7, {begin, end});
}

TEST(Syslog, EachFailingCallOfAWriteAndThatNothingIsFlushed) {
    const auto attempts = failEachCall([] { putFile(kSyslog, "before it"); }, [] { return saveSyslog("content"); });
    expectNothingKept(attempts);
    EXPECT_THAT(namesOf(attempts), ElementsAre("open#1", "flock#1", "ftruncate#1", "write#1", "flock#2", "close#1"));
    expectLines(attempts, "open#1", VOS_ERROR, {failedLine("vosFileSyslogWrite:open syslog file")});
    expectLines(attempts, "flock#1", 7, {failedLine("vosFileSyslogWrite:lock syslog file")});
    expectLines(attempts, "ftruncate#1", 7, {});
    expectLines(attempts, "write#1", VOS_ERROR, {failedLine("vosFileSyslogWrite:write syslog file")});
    expectLines(attempts, "flock#2", 7, {failedLine("vosFileSyslogWrite:unlock syslog file")});
    expectLines(attempts, "close#1", 7, {});
}

TEST(Syslog, AShortWriteIsLoggedAndGivesItsCount) {
    const Attempt attempt = failCall(
        {.call = "write", .shortTo = 2}, [] {}, [] { return saveSyslog("content"); });
    EXPECT_EQ(attempt.result, 2);
    EXPECT_THAT(attempt.messages, ElementsAre("vosFileSyslogWrite:write syslog file need 7 but only write 2."));
}
