/* SPDX-License-Identifier: MIT */
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/faults.h"
#include "vos.h"

using namespace vostest;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr std::size_t kTemplate = 286;

std::string contents(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

/* A file in the TZif format, made by the test: numbers in hexadecimal, big-endian. */
std::string bytes(const char *hex) {
    std::string result;
    int high = -1;
    for (; *hex != '\0'; ++hex) {
        if (*hex == ' ') continue;
        const int digit = *hex <= '9' ? *hex - '0' : *hex - 'a' + 10;
        if (high >= 0) result += static_cast<char>(high * 16 + digit);
        high = high >= 0 ? -1 : digit;
    }
    return result;
}

std::string expectedTemplate() {
    const std::string begin = "TZif2" + std::string(15, '\0');
    return begin + bytes("00000003 00000003 00000000 00000008 00000003 00000008") +
           /* 1948-05-01, 1948-09-11, 1949-04-02, 1949-09-10, 1950-05-06, 1950-09-09, 1951-05-05, 1951-09-08, 15:00 */
           bytes("d73e0270 d7ed59f0 d8f8fa70 d9cd3bf0 db0700f0 dbad1df0 dce6e2f0 dd8cfff0") +
           bytes("00 01 00 01 00 01 00 01") + bytes("00008ca0 01 00  00007e90 00 04  00007e90 00 04") +
           std::string("JDT\0JST\0", 8) + bytes("00 00 01") + bytes("00 00 01") + begin +
           bytes("00000004 00000004 00000000 00000009 00000004 0000000c") +
           bytes(
               "ffffffff65c2a470 ffffffffd73e0270 ffffffffd7ed59f0 ffffffffd8f8fa70 ffffffffd9cd3bf0"
               "ffffffffdb0700f0 ffffffffdbad1df0 ffffffffdce6e2f0 ffffffffdd8cfff0") +
           bytes("03 01 02 01 02 01 02 01 02") +
           bytes("00008303 00 00  00008ca0 01 04  00007e90 00 08  00007e90 00 08") +
           std::string("LMT\0JDT\0JST\0", 12) + bytes("00 00 00 01") + bytes("00 00 00 01") + "\n";
}

/* The local time that the C library computes for an instant, with the zone file that it finds. */
std::string local(time_t instant) {
    setenv("TZ", ":/etc/localtime", 1);
    tzset();
    tm parts{};
    localtime_r(&instant, &parts);
    char text[64];
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %Z %z", &parts);
    return text;
}

std::string outputOf(const char *command) {
    FILE *const pipe = popen(command, "r");
    std::string text;
    char piece[4096];
    while (fgets(piece, sizeof piece, pipe) != nullptr) text += piece;
    EXPECT_EQ(pclose(pipe), 0) << command;
    return text;
}

constexpr time_t kSummer2024 = 1720000000; /* 2024-07-03 09:46:40 UTC */
constexpr time_t kWinter2024 = 1705000000; /* 2024-01-11 19:06:40 UTC */

}  // namespace

TEST(TimeZone, TheRuleIsWrittenToBothFiles) {
    const Outcome outcome = run([] {
        EXPECT_EQ(vosTimeZoneSet("CST-8"), VOS_OK);
        EXPECT_EQ(contents("/etc/TZ"), "CST-8\n");
        const std::string zone = contents("/etc/localtime");
        EXPECT_EQ(zone.size(), 292U);
        EXPECT_EQ(zone.substr(kTemplate), "CST-8\n");
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(TimeZone, TheFileBeforeTheRuleIsTheDescribedOneByteByByte) {
    run([] {
        EXPECT_EQ(expectedTemplate().size(), kTemplate);
        ASSERT_EQ(vosTimeZoneSet("CST-8"), VOS_OK);
        const std::string zone = contents("/etc/localtime");
        for (std::size_t i = 0; i < kTemplate; ++i) ASSERT_EQ(zone.at(i), expectedTemplate().at(i)) << "byte " << i;
    });
}

TEST(TimeZone, TheCLibraryReadsIt) {
    run([] {
        ASSERT_EQ(vosTimeZoneSet("CST-8"), VOS_OK);
        EXPECT_EQ(local(kSummer2024), "2024-07-03 17:46:40 CST +0800");
        EXPECT_EQ(local(-2587712401), "1888-01-01 00:18:58 LMT +0918");
        EXPECT_EQ(local(-2587712400), "1888-01-01 00:00:00 JST +0900");
        EXPECT_EQ(local(-683802000), "1948-05-02 01:00:00 JDT +1000");
        EXPECT_EQ(local(-577962001), "1951-09-09 00:59:59 JDT +1000");
    });
}

TEST(TimeZone, ARuleWithDaylightSavingIsFollowed) {
    run([] {
        ASSERT_EQ(vosTimeZoneSet("CET-1CEST,M3.5.0,M10.5.0/3"), VOS_OK);
        EXPECT_EQ(local(kSummer2024), "2024-07-03 11:46:40 CEST +0200");
        EXPECT_EQ(local(kWinter2024), "2024-01-11 20:06:40 CET +0100");
    });
}

TEST(TimeZone, TheZoneDumpReadsIt) {
    run([] {
        ASSERT_EQ(vosTimeZoneSet("CST-8"), VOS_OK);
        const std::string dump = outputOf("zdump -v -c 1800,2030 /etc/localtime");
        for (const char *const line :
             {"Sat Dec 31 14:59:59 1887 UT = Sun Jan  1 00:18:58 1888 LMT isdst=0 gmtoff=33539",
              "Sat Dec 31 15:00:00 1887 UT = Sun Jan  1 00:00:00 1888 JST isdst=0 gmtoff=32400",
              "Sat May  1 15:00:00 1948 UT = Sun May  2 01:00:00 1948 JDT isdst=1 gmtoff=36000",
              "Sat Sep 11 15:00:00 1948 UT = Sun Sep 12 00:00:00 1948 JST isdst=0 gmtoff=32400",
              "Sat Apr  2 15:00:00 1949 UT = Sun Apr  3 01:00:00 1949 JDT isdst=1 gmtoff=36000",
              "Sat Sep 10 15:00:00 1949 UT = Sun Sep 11 00:00:00 1949 JST isdst=0 gmtoff=32400",
              "Sat May  6 15:00:00 1950 UT = Sun May  7 01:00:00 1950 JDT isdst=1 gmtoff=36000",
              "Sat Sep  9 15:00:00 1950 UT = Sun Sep 10 00:00:00 1950 JST isdst=0 gmtoff=32400",
              "Sat May  5 15:00:00 1951 UT = Sun May  6 01:00:00 1951 JDT isdst=1 gmtoff=36000"})
            EXPECT_THAT(dump, HasSubstr(line));
        EXPECT_THAT(outputOf("zdump /etc/localtime"), HasSubstr("CST"));
    });
}

TEST(TimeZone, OfAtMost128CharactersIsAcceptedAndALongerOneWritesNothing) {
    const Outcome outcome = run([] {
        const std::string longest(128, 'x');
        EXPECT_EQ(vosTimeZoneSet(longest.c_str()), VOS_OK);
        EXPECT_EQ(contents("/etc/TZ"), longest + "\n");
        EXPECT_EQ(contents("/etc/localtime").substr(kTemplate), longest + "\n");
        std::filesystem::remove("/etc/TZ");
        std::filesystem::remove("/etc/localtime");
        EXPECT_EQ(vosTimeZoneSet((longest + "x").c_str()), VOS_ERROR);
        EXPECT_EQ(vosTimeZoneSet(std::string(100000, 'x').c_str()), VOS_ERROR);
        EXPECT_FALSE(std::filesystem::exists("/etc/TZ"));
        EXPECT_FALSE(std::filesystem::exists("/etc/localtime"));
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosTimeZoneSet:timezone is too long.", "vosTimeZoneSet:timezone is too long."));
}

TEST(TimeZone, AShorterRuleReplacesALongerOneWhole) {
    run([] {
        ASSERT_EQ(vosTimeZoneSet("CET-1CEST,M3.5.0,M10.5.0/3"), VOS_OK);
        ASSERT_EQ(vosTimeZoneSet(""), VOS_OK);
        EXPECT_EQ(contents("/etc/TZ"), "\n");
        EXPECT_EQ(contents("/etc/localtime").size(), kTemplate + 1);
    });
}

TEST(TimeZone, ALinkIsFollowedAndTheFileItPointsAtIsOverwritten) {
    run([] {
        std::ofstream{"/tmp/zone"} << "a file of the zone database";
        for (const char *const path : {"/etc/localtime", "/etc/TZ"}) std::filesystem::remove(path);
        std::filesystem::create_symlink("/tmp/zone", "/etc/localtime");
        std::filesystem::create_symlink("/tmp/rule", "/etc/TZ"); /* the target does not exist yet */
        ASSERT_EQ(vosTimeZoneSet("CST-8"), VOS_OK);
        EXPECT_TRUE(std::filesystem::is_symlink("/etc/localtime"));
        EXPECT_EQ(contents("/tmp/zone").size(), kTemplate + 6);
        EXPECT_EQ(contents("/tmp/rule"), "CST-8\n");
    });
}

TEST(TimeZone, ADirectoryInPlaceOfTheFirstFileLeavesTheSecondOneAlone) {
    const Outcome outcome = run([] {
        for (const char *const path : {"/etc/localtime", "/etc/TZ"}) std::filesystem::remove(path);
        std::filesystem::create_directory("/etc/TZ");
        EXPECT_EQ(vosTimeZoneSet("CST-8"), VOS_ERROR);
        EXPECT_FALSE(std::filesystem::exists("/etc/localtime"));
        std::filesystem::remove("/etc/TZ");
        std::filesystem::create_directory("/etc/localtime");
        EXPECT_EQ(vosTimeZoneSet("CST-8"), VOS_ERROR);
        EXPECT_EQ(contents("/etc/TZ"), "CST-8\n");
    });
    EXPECT_THAT(outcome.messages(), testing::Contains("vosTimeZoneSet:vosFileWrite failed."));
    EXPECT_THAT(outcome.messages(), testing::Contains("_vosLocalTimeSet:vosFileWrite failed."));
}

TEST(TimeZone, TheProcessesOwnZoneIsNotTouched) {
    run([] {
        setenv("TZ", "UTC0", 1);
        tzset();
        ASSERT_EQ(vosTimeZoneSet("CST-8"), VOS_OK);
        EXPECT_STREQ(getenv("TZ"), "UTC0");
        tm parts{};
        localtime_r(&kSummer2024, &parts);
        EXPECT_EQ(parts.tm_hour, 9);
    });
}

TEST(TimeZone, AFileThatCannotBeWrittenEndsTheCallUnderTheNameOfItsStep) {
    const auto attempts = failEachCall([] {}, [] { return vosTimeZoneSet("CST-8"); });
    expectNothingKept(attempts);
    const Attempt &first = at(attempts, "open#1");
    EXPECT_EQ(first.result, VOS_ERROR);
    EXPECT_THAT(first.messages, testing::Contains("vosTimeZoneSet:vosFileWrite failed."));
    EXPECT_THAT(first.messages, testing::Not(testing::Contains("_vosLocalTimeSet:vosFileWrite failed.")));
    const Attempt &second = at(attempts, "open#2");
    EXPECT_EQ(second.result, VOS_ERROR);
    EXPECT_THAT(second.messages, testing::Contains("_vosLocalTimeSet:vosFileWrite failed."));
    EXPECT_THAT(second.messages, testing::Not(testing::Contains("vosTimeZoneSet:vosFileWrite failed.")));
    EXPECT_EQ(at(attempts, "write#1").result, VOS_ERROR);
    EXPECT_EQ(at(attempts, "write#2").result, VOS_ERROR);
}
