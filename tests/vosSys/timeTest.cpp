/* SPDX-License-Identifier: MIT */
#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <fstream>
#include <thread>

#include "support/faults.h"
#include "support/substitute.h"
#include "threads.h"
#include "vos.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/* "/proc/uptime" is a file of the test. */
std::string upTimeText;
int openUpTimeOfTheTest(const char *path, int flags, ...) {
    EXPECT_STREQ(path, "/proc/uptime");
    std::ofstream{"/tmp/uptime"} << upTimeText;
    return open("/tmp/uptime", flags);
}

void expectUpTime(const std::string &text, uint64_t seconds, uint64_t hundredths) {
    upTimeText = text;
    substitute("open", openUpTimeOfTheTest);
    uint64_t upSeconds = 77;
    uint64_t upHundredths = 77;
    EXPECT_EQ(vosUpTime(&upSeconds, &upHundredths), VOS_OK) << text;
    EXPECT_EQ(upSeconds, seconds) << text;
    EXPECT_EQ(upHundredths, hundredths) << text;
}

timespec clockSays;
int monotonicOfTheTest(clockid_t clock, timespec *now) {
    EXPECT_EQ(clock, CLOCK_MONOTONIC);
    *now = clockSays;
    return 0;
}

/* Never the real one. */
timespec timeThatWasSet;
int settimeOfTheTest(clockid_t clock, const timespec *now) {
    EXPECT_EQ(clock, CLOCK_REALTIME);
    timeThatWasSet = *now;
    return 0;
}

/* Runs a sleep in a thread, and a signal handler on that thread while it sleeps. */
void interrupt(const std::function<void()> &sleep) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    std::atomic<pid_t> sleeper = 0;
    std::thread thread([&] {
        sleeper = gettid();
        sleep();
    });
    EXPECT_TRUE(eventually([&] { return sleeper != 0 && sleeps(sleeper); }));
    pthread_kill(thread.native_handle(), SIGUSR1);
    thread.join();
}

}  // namespace

TEST(Sleep, LastsAsLongAsItsArgumentSays) {
    const Outcome outcome = run([] {
        expectAbout(Milliseconds(1000), duration([] { vosSleep(1); }));
        expectAbout(Milliseconds(200), duration([] { vosUSleep(200'000); }));
        expectAbout(Milliseconds(1100), duration([] { vosUSleep(1'100'000); }));
        vosSleep(0);
        vosUSleep(0);
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(Sleep, OneThatIsInterruptedEndsEarlyAndIsLogged) {
    const Outcome outcome = run([] {
        interrupt([] { vosSleep(1000); });
        interrupt([] { vosUSleep(1'000'000'000); });
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosSleep:sleep failed errno:" + errnoText(EINTR) + ".",
                                                "vosUSleep:usleep failed errno:" + errnoText(EINTR) + "."));
}

TEST(Sleep, AFailureIsLogged) {
    const Attempt shorter = failCall(
        {.call = "usleep", .error = EINVAL}, [] {},
        [] {
            vosUSleep(1);
            return 0;
        });
    EXPECT_THAT(shorter.messages, ElementsAre("vosUSleep:usleep failed errno:" + errnoText(EINVAL) + "."));
    const Attempt longer = failCall(
        {.call = "sleep"}, [] {},
        [] {
            vosSleep(1);
            return 0;
        });
    EXPECT_THAT(longer.messages, ElementsAre("vosSleep:sleep failed errno:" + errnoText(EINTR) + "."));
}

TEST(Time, OfDayIsThatOfTheSystem) {
    run([] {
        timeval now{};
        EXPECT_EQ(vosGetTimeOfDay(&now), 0);
        EXPECT_NEAR(static_cast<double>(now.tv_sec), static_cast<double>(time(nullptr)), 2);
        time_t stored = 0;
        const time_t result = vosTimeGet(&stored);
        EXPECT_EQ(stored, result);
        EXPECT_GE(vosTimeGet(nullptr), result);
        EXPECT_EQ(sysClkRateGet(), 100);
        EXPECT_EQ(vosClockHwGet(nullptr), VOS_ERROR);
        EXPECT_EQ(vosClockHwGet(&stored), VOS_ERROR);
    });
}

TEST(Time, IsSetToAWholeSecond) {
    run([] {
        substitute("clock_settime", settimeOfTheTest);
        const time_t wanted = 1'700'000'000;
        EXPECT_EQ(vosTimeSet(&wanted), 0);
        EXPECT_EQ(timeThatWasSet.tv_sec, wanted);
        EXPECT_EQ(timeThatWasSet.tv_nsec, 0);
    });
}

TEST(Time, FailuresAreThoseOfTheCLibrary) {
    const Attempt set = failCall(
        {.call = "clock_settime", .error = EPERM}, [] {},
        [] {
            const time_t wanted = 1'700'000'000;
            const int32_t result = vosTimeSet(&wanted);
            EXPECT_EQ(errno, EPERM);
            return result;
        });
    EXPECT_EQ(set.result, -1);
    const Attempt get = failCall(
        {.call = "gettimeofday"}, [] {},
        [] {
            timeval now{};
            return vosGetTimeOfDay(&now);
        });
    EXPECT_EQ(get.result, -1);
    EXPECT_THAT(set.messages, IsEmpty());
    EXPECT_THAT(get.messages, IsEmpty());
}

TEST(Time, NullIsRefused) {
    const Outcome outcome = run([] {
        uint64_t figure = 0;
        EXPECT_EQ(vosGetTimeOfDay(nullptr), VOS_ERR_PARAM);
        EXPECT_EQ(vosTimeSet(nullptr), VOS_ERR_PARAM);
        EXPECT_EQ(vosUpTime(nullptr, &figure), VOS_ERR_PARAM);
        EXPECT_EQ(vosUpTime(&figure, nullptr), VOS_ERR_PARAM);
        EXPECT_EQ(vosJiffiesAfterUsecs(nullptr, 1), VOS_ERR_PARAM);
        EXPECT_EQ(vosHostNameGet(nullptr, 64), VOS_ERR_PARAM);
        EXPECT_EQ(vosHostNameSet(nullptr, 64), VOS_ERR_PARAM);
        EXPECT_EQ(vosTimeZoneSet(nullptr), VOS_ERR_PARAM);
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosGetTimeOfDay:parameter error.", "vosTimeSet:parameter error.",
                            "vosUpTime:parameter error.", "vosUpTime:parameter error.",
                            "vosJiffiesAfterUsecs:parameter error.", "vosHostNameGet:parameter error.",
                            "vosHostNameSet:parameter error.", "vosTimeZoneSet:parameter error."));
}

TEST(HostName, OneThatDoesNotFitIsCutWithoutANul) {
    run([] {
        char name[] = "xxxxx";
        EXPECT_EQ(vosHostNameGet(name, 2), -1); /* of "vos" */
        EXPECT_EQ(errno, ENAMETOOLONG);
        EXPECT_STREQ(name, "voxxx");
    });
}

TEST(HostName, IsSetAndRead) {
    run([] {
        char name[65];
        EXPECT_EQ(vosHostNameGet(name, sizeof name), 0);
        EXPECT_STREQ(name, "vos");
        EXPECT_EQ(vosHostNameSet("device-7 and more", 8), 0);
        EXPECT_EQ(vosHostNameGet(name, sizeof name), 0);
        EXPECT_STREQ(name, "device-7");
    });
}

TEST(HostName, LengthsThatCannotBeUsedAreRefused) {
    run([] {
        char name[65] = "";
        EXPECT_EQ(vosHostNameGet(name, -1), -1);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(vosHostNameGet(name, 2), -1);
        EXPECT_EQ(errno, ENAMETOOLONG);
        EXPECT_EQ(vosHostNameGet(name, 0), -1);
        EXPECT_EQ(vosHostNameSet(std::string(65, 'x').c_str(), 65), -1);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(vosHostNameSet("x", -1), -1);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(vosHostNameGet(name, sizeof name), 0);
        EXPECT_STREQ(name, "vos");
    });
}

TEST(HostName, FailuresAreThoseOfTheCLibrary) {
    const auto attempts = failEachCall([] {},
                                       [] {
                                           char name[65];
                                           return 10L * vosHostNameGet(name, 65) + vosHostNameSet("vos", 3);
                                       });
    EXPECT_EQ(at(attempts, "gethostname#1").result, -10);
    EXPECT_EQ(at(attempts, "sethostname#1").result, -1);
    for (const Attempt &each : attempts) EXPECT_THAT(each.messages, IsEmpty());
}

TEST(UpTime, IsReadAsSecondsAndHundredths) {
    run([] {
        expectUpTime("12345.67 54321.00\n", 12345, 67);
        EXPECT_EQ(tickGet(), 1234567);
        EXPECT_EQ(vosUpSeconds(), 12345U);
        expectUpTime("0.05 0.00\n", 0, 5);
        EXPECT_EQ(tickGet(), 5);
        expectUpTime("99999999999.99 1.00\n", 99999999999, 99);
        EXPECT_EQ(tickGet(), 9999999999999);
    });
}

TEST(UpTime, OfAnotherFormatIsReadAsFarAsPossible) {
    run([] {
        expectUpTime("", 0, 0);
        expectUpTime("nonsense", 0, 0);
        expectUpTime("12", 12, 0);
        expectUpTime("12.", 12, 0);
        expectUpTime("12.3456", 12, 34);
        expectUpTime(std::string(100, '1') + ".5", 0, 0);
        expectUpTime(std::string(99, ' ') + "1.5", 1, 0); /* 100 bytes are read */
    });
}

TEST(UpTime, OfThisMachineGrows) {
    run([] {
        uint64_t seconds = 0;
        uint64_t hundredths = 100;
        EXPECT_EQ(vosUpTime(&seconds, &hundredths), VOS_OK);
        EXPECT_LT(hundredths, 100U);
        const int64_t before = tickGet();
        EXPECT_GE(before, static_cast<int64_t>(seconds * 100 + hundredths));
        EXPECT_TRUE(eventually([&] { return tickGet() > before; }));
        EXPECT_GE(vosUpSeconds(), seconds);
    });
}

TEST(UpTime, AFileThatCannotBeOpenedLeavesTheOutputsUnchanged) {
    const Attempt open = failCall(
        {.call = "open"}, [] {},
        [] {
            uint64_t seconds = 77;
            uint64_t hundredths = 77;
            const int32_t result = vosUpTime(&seconds, &hundredths);
            EXPECT_EQ(seconds, 77U);
            EXPECT_EQ(hundredths, 77U);
            return result;
        });
    EXPECT_EQ(open.result, VOS_ERROR);
    EXPECT_THAT(open.messages, IsEmpty());
    EXPECT_EQ(failCall(
                  {.call = "open"}, [] {}, [] { return tickGet(); })
                  .result,
              0);
    EXPECT_EQ(failCall(
                  {.call = "open"}, [] {}, [] { return static_cast<long>(vosUpSeconds()); })
                  .result,
              0);
}

TEST(UpTime, AReadThatFailsLeavesZeros) {
    const auto attempts = failEachCall([] {},
                                       [] {
                                           uint64_t seconds = 77;
                                           uint64_t hundredths = 77;
                                           const int32_t result = vosUpTime(&seconds, &hundredths);
                                           return result == VOS_OK && seconds == 0 && hundredths == 0 ? 1L : 0L;
                                       });
    expectNothingKept(attempts);
    EXPECT_EQ(attempts.size(), 3U);
    EXPECT_EQ(at(attempts, "read#1").result, 1);
    EXPECT_EQ(at(attempts, "close#1").result, 0);
}

TEST(MonotonicDeadline, IsNowPlusTheMicroseconds) {
    run([] {
        substitute("clock_gettime", monotonicOfTheTest);
        const auto expectDeadline = [](timespec now, uint32_t microseconds, time_t seconds, long nanoseconds) {
            clockSays = now;
            timespec deadline{};
            EXPECT_EQ(vosJiffiesAfterUsecs(&deadline, microseconds), VOS_OK);
            EXPECT_EQ(deadline.tv_sec, seconds);
            EXPECT_EQ(deadline.tv_nsec, nanoseconds);
        };
        expectDeadline({100, 0}, 2'500'000, 102, 500'000'000);
        expectDeadline({100, 700'000'000}, 2'500'000, 103, 200'000'000);
        expectDeadline({100, 500'000'000}, 500'000, 100, 1'000'000'000);
        expectDeadline({100, 500'000'001}, 500'000, 101, 1);
        expectDeadline({100, 0}, 0xFFFFFFFF, 4394, 967'295'000); /* unsigned, unlike a time-out */
    });
}

TEST(MonotonicDeadline, IsReachedWhenTheClockHasReachedIt) {
    run([] {
        substitute("clock_gettime", monotonicOfTheTest);
        clockSays = {100, 500};
        EXPECT_EQ(vosTimeAterEq(99, 999'999'999), 1);
        EXPECT_EQ(vosTimeAterEq(100, 499), 1);
        EXPECT_EQ(vosTimeAterEq(100, 500), 1);
        EXPECT_EQ(vosTimeAterEq(100, 501), 0);
        EXPECT_EQ(vosTimeAterEq(101, 0), 0);
        EXPECT_EQ(vosTimeAterEq(-1, 0), 1);
    });
}

TEST(MonotonicDeadline, OfZeroMicrosecondsIsReachedAtOnce) {
    run([] {
        timespec deadline{};
        ASSERT_EQ(vosJiffiesAfterUsecs(&deadline, 0), VOS_OK);
        EXPECT_EQ(vosTimeAterEq(deadline.tv_sec, deadline.tv_nsec), 1);
        expectAbout(Milliseconds(200), duration([&] {
                        ASSERT_EQ(vosJiffiesAfterUsecs(&deadline, 200'000), VOS_OK);
                        EXPECT_EQ(vosTimeAterEq(deadline.tv_sec, deadline.tv_nsec), 0);
                        EXPECT_TRUE(eventually([&] { return vosTimeAterEq(deadline.tv_sec, deadline.tv_nsec) == 1; }));
                    }));
    });
}

TEST(MonotonicDeadline, AClockThatCannotBeReadIsAFailure) {
    const Attempt after = failCall(
        {.call = "clock_gettime"}, [] {},
        [] {
            timespec deadline{7, 7};
            const int32_t result = vosJiffiesAfterUsecs(&deadline, 1);
            EXPECT_EQ(deadline.tv_sec, 7);
            return result;
        });
    EXPECT_EQ(after.result, VOS_ERROR);
    EXPECT_EQ(failCall(
                  {.call = "clock_gettime"}, [] {}, [] { return vosTimeAterEq(0, 0); })
                  .result,
              0);
}
