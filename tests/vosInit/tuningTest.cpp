/* SPDX-License-Identifier: MIT */
/* The kernel's settings, each written by a command line into the sandbox's own /proc/sys. */
#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>

#include "support/faults.h"
#include "tunables.h"
#include "vos.h"

using namespace vostest;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

const char *const kRecord = "/flash/core-file";

void putRecord(const std::string &bytes) { std::ofstream(kRecord, std::ios::binary) << bytes; }

/* The record as the device's other programs write it, byte by byte. */
std::string record(uint32_t sizeMiB, const std::string &directory) {
    std::string bytes = "\x5A\xA5\xA5\x5A";
    for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(sizeMiB >> shift & 0xFF);
    bytes += directory;
    bytes.resize(44);
    return bytes;
}

/* Writes a record, switches core files on and returns the pattern. */
std::string patternAfter(const std::string &bytes) {
    putRecord(bytes);
    const Outcome outcome = run([] { EXPECT_EQ(vosLinuxCoreDumpInit("demo"), VOS_OK); });
    EXPECT_THAT(outcome.output, IsEmpty());
    return corePattern();
}

void expectLimitAfter(const std::string &bytes, rlim_t expected) {
    putRecord(bytes);
    run([expected] {
        EXPECT_EQ(vosLinuxCoreDumpInit("demo"), VOS_OK);
        expectCoreLimit(expected);
    });
}

std::string systemFailed(const std::string &function, const std::string &command) {
    return function + ":system(" + command + ") failed errno " + std::to_string(EIO) + " errstr " + strerror(EIO) + ".";
}

std::string limitFailed(const std::string &call, int error) {
    return "vosLinuxCoreDumpInit: " + call + " RLIMIT_CORE failed error no(" + std::to_string(error) + ") str(" +
           strerror(error) + ").";
}

const char *const kDefaultPattern = "/flash/core-demo-%e-%p-%t\n";

}  // namespace

/* Memory overcommit */

TEST(OomInit, OvercommitBecomesHeuristic) {
    const Outcome outcome = run([] {
        noteCommands();
        EXPECT_EQ(vosLinuxOOMInit(), VOS_OK);
        EXPECT_THAT(commands(), ElementsAre("echo 0 > /proc/sys/vm/overcommit_memory"));
    });
    EXPECT_EQ(tunable("vm/overcommit_memory"), "0\n");
    EXPECT_THAT(outcome.output, IsEmpty());
}

TEST(OomInit, ACommandThatCannotBeRunIsPrintedAndTheResultStaysOk) {
    const auto attempts = failEachCall([] {}, [] { return long{vosLinuxOOMInit()}; });
    expectNothingKept(attempts);
    for (const Attempt &each : attempts) EXPECT_EQ(each.result, VOS_OK) << describe(each.point);
    for (const char *const call : {"fork#1", "wait4#1"})
        EXPECT_THAT(at(attempts, call).messages,
                    ElementsAre(systemFailed("vosLinuxOOMInit", "echo 0 > /proc/sys/vm/overcommit_memory")));
}

TEST(OomInit, ThePrintWaitsInTheStreamUntilItIsFlushed) {
    const auto printed = [](bool flushed) {
        return run([flushed] {
                   Faults::arm({.call = "fork"});
                   EXPECT_EQ(vosLinuxOOMInit(), VOS_OK);
                   if (!flushed) _exit(0);
               })
            .output;
    };
    EXPECT_THAT(printed(true), HasSubstr("failed errno"));
    EXPECT_THAT(printed(false), IsEmpty());
}

/* Sockets */

TEST(NetInit, TheCeilingsAreWrittenInTheirOrder) {
    const Outcome outcome = run([] {
        noteCommands();
        EXPECT_EQ(vosLinuxNetInit(), VOS_OK);
        EXPECT_THAT(commands(), ElementsAre("echo 14680064 > /proc/sys/net/core/wmem_max",
                                            "echo 14680064 > /proc/sys/net/core/rmem_max",
                                            "echo 4096 > /proc/sys/net/unix/max_dgram_qlen"));
    });
    EXPECT_EQ(tunable("net/core/wmem_max"), "14680064\n");
    EXPECT_EQ(tunable("net/core/rmem_max"), "14680064\n");
    EXPECT_EQ(tunable("net/unix/max_dgram_qlen"), "4096\n");
    EXPECT_THAT(outcome.output, IsEmpty());
}

TEST(NetInit, EachCommandThatCannotBeRunIsPrintedAndTheOthersStillRun) {
    const auto attempts = failEachCall([] {}, [] { return long{vosLinuxNetInit()}; });
    expectNothingKept(attempts);
    for (const Attempt &each : attempts) EXPECT_EQ(each.result, VOS_OK) << describe(each.point);
    const char *const lines[] = {"echo 14680064 > /proc/sys/net/core/wmem_max",
                                 "echo 14680064 > /proc/sys/net/core/rmem_max",
                                 "echo 4096 > /proc/sys/net/unix/max_dgram_qlen"};
    for (int i = 0; i < 3; ++i)
        for (const std::string call : {"fork#", "wait4#"})
            EXPECT_THAT(at(attempts, call + std::to_string(i + 1)).messages,
                        ElementsAre(systemFailed("vosLinuxNetInit", lines[i])));
    run([] {
        for (const char *const name : {"wmem_max", "rmem_max"})
            std::ofstream(std::string("/proc/sys/net/core/") + name) << "1\n";
        Faults::arm({.call = "fork"});
        EXPECT_EQ(vosLinuxNetInit(), VOS_OK);
    });
    EXPECT_EQ(tunable("net/core/wmem_max"), "1\n");
    EXPECT_EQ(tunable("net/core/rmem_max"), "14680064\n");
}

/* Core files */

TEST(CoreDumpInit, WithoutARecordCoreFilesAreUnlimitedAndGoToFlash) {
    NEEDS_UNLIMITED_CORES;
    const Outcome outcome = run([] {
        noteCommands();
        EXPECT_EQ(vosLinuxCoreDumpInit("demo"), VOS_OK);
        EXPECT_THAT(commands(), ElementsAre("echo 1 > /proc/sys/kernel/core_uses_pid",
                                            "echo \"/flash/core-demo-%e-%p-%t\" > /proc/sys/kernel/core_pattern",
                                            "echo 1 > /proc/sys/fs/suid_dumpable"));
        expectCoreLimit(RLIM_INFINITY);
    });
    EXPECT_EQ(tunable("kernel/core_uses_pid"), "1\n");
    EXPECT_EQ(corePattern(), kDefaultPattern);
    EXPECT_EQ(tunable("fs/suid_dumpable"), "1\n");
    EXPECT_THAT(outcome.output, IsEmpty());
}

TEST(CoreDumpInit, ARecordLimitsTheSizeAndMovesTheFiles) {
    NEEDS_UNLIMITED_CORES;
    expectLimitAfter(record(64, "/var/crash"), 67108864);
    EXPECT_EQ(corePattern(), "/var/crash/core-demo-%e-%p-%t\n");
}

TEST(CoreDumpInit, ASizeOfZeroIsNoLimit) {
    NEEDS_UNLIMITED_CORES;
    expectLimitAfter(record(0, "/var/crash"), RLIM_INFINITY);
    EXPECT_EQ(corePattern(), "/var/crash/core-demo-%e-%p-%t\n");
}

TEST(CoreDumpInit, TheLimitWrapsAtFourGigabytes) {
    NEEDS_UNLIMITED_CORES;
    expectLimitAfter(record(4095, "/"), 4293918720);
    expectLimitAfter(record(4096, "/"), 0);
    expectLimitAfter(record(4097, "/"), 1048576);
    expectLimitAfter(record(UINT32_MAX, "/"), 4293918720);
}

TEST(CoreDumpInit, AnInvalidRecordGivesTheDefaultsAndNoErrorLine) {
    EXPECT_EQ(patternAfter(record(64, "var/crash")), kDefaultPattern);
    EXPECT_EQ(patternAfter(record(64, "")), kDefaultPattern);
    EXPECT_EQ(patternAfter(""), kDefaultPattern);
    EXPECT_EQ(patternAfter(record(64, "/var/crash").substr(0, 43)), kDefaultPattern);
    std::string otherMagic = record(64, "/var/crash");
    otherMagic[3] = '\x5B';
    EXPECT_EQ(patternAfter(otherMagic), kDefaultPattern);
    std::string swapped = record(64, "/var/crash");
    std::reverse(swapped.begin(), swapped.begin() + 4);
    EXPECT_EQ(swapped, record(64, "/var/crash")) << "the magic reads the same in either byte order";
    swapped = "\xA5\x5A\x5A\xA5" + swapped.substr(4);
    EXPECT_EQ(patternAfter(swapped), kDefaultPattern);
}

TEST(CoreDumpInit, AnInvalidRecordLimitsNothing) {
    NEEDS_UNLIMITED_CORES;
    expectLimitAfter(record(64, "var/crash"), RLIM_INFINITY);
    expectLimitAfter(record(64, "/var/crash").substr(0, 43), RLIM_INFINITY);
}

TEST(CoreDumpInit, ALongerFileIsARecord) {
    EXPECT_EQ(patternAfter(record(64, "/var/crash") + std::string(1000, 'x')), "/var/crash/core-demo-%e-%p-%t\n");
}

TEST(CoreDumpInit, OnlyTheFirst32CharactersOfTheDirectoryAreUsed) {
    const std::string directory = "/23456789012345678901234567890123456";
    ASSERT_EQ(directory.size(), 36u);
    for (const std::size_t length : {31u, 32u, 33u, 36u})
        EXPECT_EQ(patternAfter(record(64, directory.substr(0, length))),
                  directory.substr(0, std::min(length, std::size_t{32})) + "/core-demo-%e-%p-%t\n");
}

TEST(CoreDumpInit, TheTraceShowsTheOldLimitsAndTheNewSize) {
    NEEDS_UNLIMITED_CORES;
    putRecord(record(64, "/var/crash"));
    const Outcome outcome = run([] {
        const rlimit limit{1048576, 2097152};
        ASSERT_EQ(setrlimit(RLIMIT_CORE, &limit), 0);
        vosDebugConfig(VOS_DEBUG_TRACE);
        vosLinuxCoreDumpInit("demo");
    });
    EXPECT_THAT(outcome.messages(),
                Contains("vosLinuxCoreDumpInit:corefile rlim_cur=1048576, rlim_max=2097152 now set 64 M."));
}

TEST(CoreDumpInit, AMissingRecordIsOnlyTraced) {
    const Outcome outcome = run([] {
        vosDebugConfig(VOS_DEBUG_TRACE);
        vosLinuxCoreDumpInit("demo");
    });
    EXPECT_THAT(outcome.messages(), Contains(HasSubstr("vosFileRead:file /flash/core-file does not exist")));
}

TEST(CoreDumpInit, ALimitThatMayNotBeRaisedIsPrintedAndTheStepsGoOn) {
    const Outcome outcome = run([] {
        const rlimit limit{0, 0};
        ASSERT_EQ(setrlimit(RLIMIT_CORE, &limit), 0);
        noteCommands();
        giveUpRights();
        EXPECT_EQ(vosLinuxCoreDumpInit("demo"), VOS_OK);
        expectCoreLimit(0);
        EXPECT_EQ(commands().size(), 3u);
    });
    EXPECT_EQ(outcome.output, "\r\n" + limitFailed("setrlimit", EPERM));
}

TEST(CoreDumpInit, EachFailingCallLeavesTheOtherStepsAndTheResult) {
    const auto attempts =
        failEachCall([] { putRecord(record(0, "/var/crash")); }, [] { return long{vosLinuxCoreDumpInit("demo")}; });
    expectNothingKept(attempts);
    for (const Attempt &each : attempts) EXPECT_EQ(each.result, VOS_OK) << describe(each.point);
    EXPECT_THAT(at(attempts, "getrlimit#1").messages, ElementsAre(limitFailed("getrlimit", EIO)));
    EXPECT_THAT(at(attempts, "setrlimit#1").messages, ElementsAre(limitFailed("setrlimit", EIO)));
    const char *const lines[] = {"echo 1 > /proc/sys/kernel/core_uses_pid",
                                 "echo \"/var/crash/core-demo-%e-%p-%t\" > /proc/sys/kernel/core_pattern",
                                 "echo 1 > /proc/sys/fs/suid_dumpable"};
    for (int i = 0; i < 3; ++i)
        for (const std::string call : {"fork#", "wait4#"})
            EXPECT_THAT(at(attempts, call + std::to_string(i + 1)).messages,
                        ElementsAre(systemFailed("vosLinuxCoreDumpInit", lines[i])));
}

TEST(CoreDumpInit, ARecordThatCannotBeReadGivesTheDefaults) {
    for (const char *const call : {"open", "read"}) {
        putRecord(record(64, "/var/crash"));
        const Attempt attempt = failCall(
            {.call = call}, [] {}, [] { return long{vosLinuxCoreDumpInit("demo")}; });
        EXPECT_EQ(attempt.result, VOS_OK);
        EXPECT_THAT(attempt.messages, ElementsAre(std::string("vosFileRead:") + call +
                                                  " file /flash/core-file failed errno:" + errnoText(EIO) + "."));
        EXPECT_EQ(corePattern(), kDefaultPattern);
    }
}

TEST(CoreDumpInit, AShortReadGivesTheDefaults) {
    putRecord(record(64, "/var/crash"));
    failCall(
        {.call = "read", .shortTo = 43}, [] {}, [] { return long{vosLinuxCoreDumpInit("demo")}; });
    EXPECT_EQ(corePattern(), kDefaultPattern);
}

TEST(CoreDumpInit, WhenTheLimitCannotBeReadTheTraceShowsZeros) {
    putRecord(record(0, "/"));
    const Attempt attempt = failCall(
        {.call = "getrlimit"}, [] { vosDebugConfig(VOS_DEBUG_TRACE); },
        [] { return long{vosLinuxCoreDumpInit("demo")}; });
    EXPECT_THAT(attempt.messages, Contains("vosLinuxCoreDumpInit:corefile rlim_cur=0, rlim_max=0 now set 0 M."));
}

/* The name */

TEST(CoreDumpInit, ANameOf169CharactersFitsBehindTheLongestDirectory) {
    putRecord(record(0, "/" + std::string(31, 'd')));
    const std::string name(169, 'n');
    const Outcome outcome = run([&name] {
        noteCommands();
        EXPECT_EQ(vosLinuxCoreDumpInit(name.c_str()), VOS_OK);
        EXPECT_EQ(commands().at(1).size(), 255u);
    });
    EXPECT_EQ(corePattern(), "/" + std::string(31, 'd') + "/core-" + name + "-%e-%p-%t\n");
    EXPECT_THAT(outcome.output, IsEmpty());
}

TEST(CoreDumpInit, ALongerNameIsCutAndTheEndOfTheLineIsKept) {
    putRecord(record(0, "/" + std::string(31, 'd')));
    for (const std::size_t length : {170u, 5000u}) {
        const std::string name(length, 'n');
        const Outcome outcome = run([&name] { EXPECT_EQ(vosLinuxCoreDumpInit(name.c_str()), VOS_OK); });
        EXPECT_EQ(corePattern(), "/" + std::string(31, 'd') + "/core-" + std::string(169, 'n') + "-%e-%p-%t\n");
        const auto messages = outcome.messages();
        ASSERT_EQ(messages.size(), 1u);
        EXPECT_THAT(messages[0], HasSubstr("vosLinuxCoreDumpInit:name nnn"));
    }
}

TEST(CoreDumpInit, ANullNameIsLoggedAndEmpty) {
    const Outcome outcome = run([] { EXPECT_EQ(vosLinuxCoreDumpInit(nullptr), VOS_OK); });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosLinuxCoreDumpInit:parameter error."));
    EXPECT_EQ(corePattern(), "/flash/core--%e-%p-%t\n");
}

TEST(CoreDumpInit, BlanksAndPercentSignsOfTheNameReachTheKernelUnchanged) {
    run([] { EXPECT_EQ(vosLinuxCoreDumpInit("a  b;c%h"), VOS_OK); });
    EXPECT_EQ(corePattern(), "/flash/core-a  b;c%h-%e-%p-%t\n");
}

/* Rights */

TEST(Tuning, WithoutTheRightToWriteAllCountsAsDoneAndNothingIsPrinted) {
    NEEDS_UNLIMITED_CORES;
    const Outcome outcome = run([] {
        giveUpRights();
        EXPECT_EQ(vosLinuxOOMInit(), VOS_OK);
        EXPECT_EQ(vosLinuxCoreDumpInit("demo"), VOS_OK);
        EXPECT_EQ(vosLinuxNetInit(), VOS_OK);
        expectCoreLimit(RLIM_INFINITY);
    });
    EXPECT_THAT(outcome.output, IsEmpty());
    EXPECT_EQ(tunable("vm/overcommit_memory"), "1\n");
    EXPECT_EQ(corePattern(), "core\n");
    EXPECT_EQ(tunable("net/unix/max_dgram_qlen"), "10\n");
}
