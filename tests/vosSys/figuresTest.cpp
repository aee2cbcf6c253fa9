/* SPDX-License-Identifier: MIT */
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>

#include <cstdarg>
#include <cstring>
#include <fstream>

#include "support/faults.h"
#include "support/substitute.h"
#include "vos.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/* The kernel's version text that uname() returns. */
const char *kernelVersion = "";
int versionOfTheTest(utsname *names) {
    *names = {};
    strncpy(names->version, kernelVersion, sizeof names->version - 1);
    return 0;
}

std::string buildTimeOf(const char *version, int32_t expected) {
    kernelVersion = version;
    substitute("uname", versionOfTheTest);
    char text[65] = "left over";
    EXPECT_EQ(vosBuildTimeGet(0, text, 0), expected);
    return text;
}

int hugeMemory(struct sysinfo *info) {
    *info = {};
    info->totalram = (3UL << 40) + 0xFFFFF; /* less than a megabyte more */
    info->freeram = (1UL << 20) - 1;
    info->mem_unit = 4096;
    return 0;
}

/* "/proc/stat" is a file of the test: one text before the pause and one after it. */
std::array<std::string, 2> statTexts;
int readings = 0;
int openStatOfTheTest(const char *path, int flags, ...) {
    EXPECT_STREQ(path, "/proc/stat");
    EXPECT_EQ(flags & O_ACCMODE, O_RDONLY);
    std::ofstream{"/tmp/stat"} << statTexts.at(static_cast<std::size_t>(readings++));
    return open("/tmp/stat", flags);
}
unsigned noPause(unsigned seconds) {
    EXPECT_EQ(seconds, 1U);
    return 0;
}

uint32_t idleBetween(const std::string &before, const std::string &after) {
    statTexts = {before, after};
    readings = 0;
    substitute("open", openStatOfTheTest);
    substitute("sleep", noPause);
    return vosCpuIdleGet();
}

}  // namespace

TEST(BuildTime, IsWhatFollowsTheThirdBlank) {
    run([] {
        EXPECT_EQ(buildTimeOf("#1 SMP Tue Mar 3 10:00:00 UTC 2020", VOS_OK), "Mar 3 10:00:00 UTC 2020");
        EXPECT_EQ(buildTimeOf("#1 SMP PREEMPT Tue Mar 3", VOS_OK), "Tue Mar 3");
        EXPECT_EQ(buildTimeOf("#1 SMP PREEMPT ", VOS_OK), "");
    });
}

TEST(BuildTime, AVersionWithFewerBlanksFailsAndLeavesTheBufferEmpty) {
    const Outcome outcome = run([] {
        EXPECT_EQ(buildTimeOf("#1 SMP", VOS_ERROR), "");
        EXPECT_EQ(buildTimeOf("#1 SMP PREEMPT", VOS_ERROR), "");
        EXPECT_EQ(buildTimeOf("", VOS_ERROR), "");
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(BuildTime, TheLongestVersionFitsInto65Bytes) {
    run([] {
        const std::string longest = "   " + std::string(61, 'x');
        EXPECT_EQ(buildTimeOf(longest.c_str(), VOS_OK), std::string(61, 'x'));
    });
}

TEST(BuildTime, OfThisKernelIsTheEndOfItsVersion) {
    run([] {
        utsname names{};
        uname(&names);
        char text[65];
        ASSERT_EQ(vosBuildTimeGet(1, text, 1), VOS_OK);
        EXPECT_THAT(names.version, testing::EndsWith(std::string(" ") + text));
    });
}

TEST(BuildTime, AFailedUnameIsLogged) {
    const auto attempts = failEachCall([] {},
                                       [] {
                                           char text[65] = "left over";
                                           const int32_t result = vosBuildTimeGet(0, text, 65);
                                           EXPECT_TRUE(result == VOS_OK || text[0] == '\0');
                                           return result;
                                       });
    ASSERT_EQ(attempts.size(), 1U);
    EXPECT_EQ(at(attempts, "uname#1").result, VOS_ERROR);
    EXPECT_THAT(at(attempts, "uname#1").messages,
                ElementsAre("vosBuildTimeGet:uname failed errno:" + errnoText(EIO) + "."));
}

TEST(BuildTime, ANullBufferIsRefused) {
    const Outcome outcome = run([] { EXPECT_EQ(vosBuildTimeGet(0, nullptr, 65), VOS_ERR_PARAM); });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosBuildTimeGet:parameter error."));
}

TEST(Memory, IsCountedInMegabytesAndTheUnitWordIsNotApplied) {
    run([] {
        substitute("sysinfo", hugeMemory);
        EXPECT_EQ(vosMemoryTotalGet(), 3U << 20);
        EXPECT_EQ(vosMemoryFreeGet(), 0U);
    });
}

TEST(Memory, OfThisMachineIsWhatTheKernelReports) {
    run([] {
        struct sysinfo info {};
        sysinfo(&info);
        EXPECT_EQ(vosMemoryTotalGet(), info.totalram >> 20);
        EXPECT_GT(vosMemoryFreeGet(), 0U);
        EXPECT_LE(vosMemoryFreeGet(), vosMemoryTotalGet());
    });
}

TEST(Memory, AFailureIsZeroAndOneLine) {
    const Attempt total = failCall(
        {.call = "sysinfo"}, [] {}, [] { return vosMemoryTotalGet(); });
    EXPECT_EQ(total.result, 0);
    EXPECT_THAT(total.messages, ElementsAre("vosMemoryTotalGet:sysinfo failed errno:" + errnoText(EIO) + "."));
    const Attempt free = failCall(
        {.call = "sysinfo"}, [] {}, [] { return vosMemoryFreeGet(); });
    EXPECT_EQ(free.result, 0);
    EXPECT_THAT(free.messages, ElementsAre("vosMemoryFreeGet:sysinfo failed errno:" + errnoText(EIO) + "."));
}

TEST(CpuIdle, IsTheIdleShareOfTheTicksInBetween) {
    run([] {
        EXPECT_EQ(idleBetween("cpu  0 0 0 0 0 0 0 0 0 0\n", "cpu  0 0 0 100 0 0 0 0 0 0\n"), 100U);
        EXPECT_EQ(idleBetween("cpu  10 20 30 40 50 60 70 80\n", "cpu  11 22 33 44 55 66 77 88\n"), 4U * 100 / 36);
        EXPECT_EQ(idleBetween("cpu  0 0 0 0 0 0 0 0\n", "cpu  100 0 0 199 0 0 0 0\n"), 66U);
        EXPECT_EQ(idleBetween("cpu  0 0 0 0 0 0 0 0\n", "cpu  1 1 1 0 1 1 1 1\n"), 0U);
    });
}

TEST(CpuIdle, GuestTicksAreNotCounted) {
    run([] {
        EXPECT_EQ(idleBetween("cpu  0 0 0 0 0 0 0 0 0 0\ncpu0 0 0", "cpu  5 0 0 5 0 0 0 0 90 90\ncpu0 9 9"), 50U);
    });
}

TEST(CpuIdle, NoTickInBetweenIsZero) {
    run([] { EXPECT_EQ(idleBetween("cpu  1 2 3 4 5 6 7 8\n", "cpu  1 2 3 4 5 6 7 8\n"), 0U); });
}

TEST(CpuIdle, CountersAre32BitsWideAndWrap) {
    run([] {
        EXPECT_EQ(idleBetween("cpu  0 0 0 4294967290 0 0 0 0\n", "cpu  6 0 0 4294967296 0 0 0 0\n"), 50U);
        EXPECT_EQ(idleBetween("cpu  4294967295 0 0 0 0 0 0 0\n", "cpu  0 0 0 1 0 0 0 0\n"), 50U);
        EXPECT_EQ(idleBetween("cpu  0 0 0 8589934592 0 0 0 0\n", "cpu  1 0 0 8589934593 0 0 0 0\n"), 50U);
    });
}

TEST(CpuIdle, IdleTicksThatStepBackWrap) {
    run([] {
        const uint32_t elapsed = 99;
        EXPECT_EQ(idleBetween("cpu  0 0 0 1 0 0 0 0\n", "cpu  100 0 0 0 0 0 0 0\n"), (0U - 1U) * 100U / elapsed);
    });
}

TEST(CpuIdle, ATextOfAnotherFormatCountsNothing) {
    run([] {
        EXPECT_EQ(idleBetween("", ""), 0U);
        EXPECT_EQ(idleBetween("intr 1 2 3", "intr 4 5 6"), 0U);
        EXPECT_EQ(idleBetween("cpu  1 2 x", "cpu  1 2 x 9"), 0U);
        EXPECT_EQ(idleBetween("cpu  99999999999999999999999 1", "cpu  1 1"), 0U);
    });
}

TEST(CpuIdle, OnlyTheFirst256BytesAreRead) {
    run([] {
        const std::string far(300, ' ');
        EXPECT_EQ(idleBetween("cpu" + far + "0 0 0 0 0 0 0 0", "cpu" + far + "0 0 0 9 0 0 0 0"), 0U);
    });
}

TEST(CpuIdle, OfThisMachineIsAPercentage) {
    run([] { EXPECT_LE(vosCpuIdleGet(), 100U); });
}

TEST(CpuIdle, AFileThatCannotBeOpenedOrReadIsTakenAsIdle) {
    const auto attempts = failEachCall([] {}, [] { return vosCpuIdleGet(); });
    expectNothingKept(attempts);
    const auto expectLine = [&](const char *point, const std::string &text) {
        EXPECT_EQ(at(attempts, point).result, 100) << point;
        EXPECT_THAT(at(attempts, point).messages, ElementsAre("vosCpuIdleGet:" + text + errnoText(EIO) + "."));
    };
    expectLine("open#1", "open /proc/stat 0 failed errno:");
    expectLine("open#2", "open /proc/stat 1 failed errno:");
    expectLine("read#1", "read /proc/stat 0 failed errno:");
    expectLine("read#2", "read /proc/stat 1 failed errno:");
    for (const char *const point : {"close#1", "close#2", "sleep#1"})
        EXPECT_THAT(at(attempts, point).messages, IsEmpty()) << point;
    EXPECT_EQ(attempts.size(), 7U);
}

TEST(ErrorNumber, BelongsToTheCallingThread) {
    run([] {
        EXPECT_EQ(errnoSet(EAGAIN), VOS_OK);
        EXPECT_EQ(errno, EAGAIN);
        errno = -7;
        EXPECT_EQ(errnoGet(), -7);
    });
}

TEST(ErrorNumber, HasTheTextOfTheCLibrary) {
    run([] {
        char text[64];
        EXPECT_EQ(vosErrnoToStr(ENOENT, text, sizeof text), text);
        EXPECT_STREQ(text, strerror(ENOENT));
        vosErrnoToStr(0, text, sizeof text);
        EXPECT_STREQ(text, strerror(0));
        vosErrnoToStr(123456, text, sizeof text);
        EXPECT_THAT(text, testing::HasSubstr("123456"));
        vosErrnoToStr(-1, text, sizeof text);
        EXPECT_THAT(text, testing::HasSubstr("-1"));
    });
}

TEST(ErrorNumber, ATextThatDoesNotFitIsCutInTheCallersBuffer) {
    run([] {
        char text[8];
        for (int32_t size = 1; size <= 7; ++size) {
            memset(text, 'x', sizeof text);
            EXPECT_EQ(vosErrnoToStr(ENOENT, text, size), text);
            EXPECT_EQ(std::string(text), std::string(strerror(ENOENT)).substr(0, static_cast<std::size_t>(size) - 1));
            EXPECT_EQ(text[size], 'x');
        }
    });
}

TEST(ErrorNumber, ABufferWithoutRoomIsNotTouched) {
    run([] {
        char text[2] = "x";
        EXPECT_EQ(vosErrnoToStr(ENOENT, text, 0), text);
        EXPECT_EQ(vosErrnoToStr(ENOENT, text, -1), text);
        EXPECT_STREQ(text, "x");
        EXPECT_EQ(vosErrnoToStr(ENOENT, nullptr, 8), nullptr);
    });
}

TEST(ErrorNumber, ATextThatCannotBeObtainedIsEmpty) {
    const auto attempts = failEachCall([] {},
                                       [] {
                                           char text[8] = "left";
                                           vosErrnoToStr(ENOENT, text, sizeof text);
                                           return static_cast<long>(strlen(text));
                                       });
    EXPECT_EQ(at(attempts, "strerror_r#1").result, 0);
}
