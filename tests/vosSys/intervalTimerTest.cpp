/* SPDX-License-Identifier: MIT */
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "support/faults.h"
#include "support/substitute.h"
#include "threads.h"
#include "vos.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Clock = std::chrono::steady_clock;

/* The thread sanitizer does not see the threads that the system library makes inside itself, and code that it has
 * instrumented cannot run on them: a timer that fires ends the process. The tests without an expiry do run. */
#if defined(__SANITIZE_THREAD__)
constexpr bool kExpiriesCanRun = false;
#else
constexpr bool kExpiriesCanRun = true;
#endif
const char *const kWhyNot = "the thread sanitizer cannot follow the system library's timer threads";

std::atomic<int> calls = 0;
std::atomic<uint64_t> lastArgument = 0;

int32_t count(uint64_t argument) {
    lastArgument = argument;
    ++calls;
    return -1; /* ignored */
}

VOS_TIMER timer(VOS_TIMER_PROC proc, uint32_t periodMs, uint32_t mode) { return {proc, 42, periodMs, mode, nullptr}; }

/* Whether the one-shot has deleted itself. */
bool gone(VOS_TIMER &record) { return __atomic_load_n(&record.hTimer, __ATOMIC_ACQUIRE) == nullptr; }

/* Long enough for a timer that must not fire to have fired: as long as others of the same period take. */
void letOthersFire(uint32_t periodMs, int times) {
    VOS_TIMER other = timer([](uint64_t) { return 0; }, periodMs, 0);
    for (int i = 0; i < times; ++i) {
        ASSERT_EQ(vosTimerAdd(&other), VOS_OK);
        ASSERT_TRUE(eventually([&] { return gone(other); }));
    }
}

/* How the system library was asked for a timer. */
itimerspec timesSeen;
int settimeOfTheTest(timer_t /*timer*/, int flags, const itimerspec *times, itimerspec *before) {
    EXPECT_EQ(flags, 0);
    EXPECT_EQ(before, nullptr);
    timesSeen = *times;
    return 0;
}

void expectTimes(uint32_t periodMs, uint32_t mode, timespec first, timespec again) {
    VOS_TIMER record = timer(count, periodMs, mode);
    EXPECT_EQ(vosTimerAdd(&record), VOS_OK);
    EXPECT_EQ(timesSeen.it_value.tv_sec, first.tv_sec);
    EXPECT_EQ(timesSeen.it_value.tv_nsec, first.tv_nsec);
    EXPECT_EQ(timesSeen.it_interval.tv_sec, again.tv_sec);
    EXPECT_EQ(timesSeen.it_interval.tv_nsec, again.tv_nsec);
    EXPECT_EQ(vosTimerDel(&record), 0);
}

}  // namespace

TEST(IntervalTimer, APeriodicOneFiresUntilItIsDeleted) {
    if (!kExpiriesCanRun) GTEST_SKIP() << kWhyNot;
    const Outcome outcome = run([] {
        VOS_TIMER record = timer(count, 250, 1);
        const auto begin = Clock::now();
        ASSERT_EQ(vosTimerAdd(&record), VOS_OK);
        EXPECT_TRUE(eventually([] { return calls == 4; }));
        expectAbout(Milliseconds(1000), std::chrono::duration_cast<Milliseconds>(Clock::now() - begin));
        EXPECT_EQ(lastArgument, 42U);
        EXPECT_EQ(vosTimerDel(&record), 0);
        const int then = calls;
        letOthersFire(250, 2);
        EXPECT_LE(calls, then + 1) << "at most a call that was on its way";
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(IntervalTimer, AOneShotFiresOnceAndIsGone) {
    if (!kExpiriesCanRun) GTEST_SKIP() << kWhyNot;
    run([] {
        VOS_TIMER record = timer(count, 1500, 0);
        expectAbout(Milliseconds(1500), duration([&] {
                        ASSERT_EQ(vosTimerAdd(&record), VOS_OK);
                        EXPECT_FALSE(gone(record));
                        EXPECT_TRUE(eventually([] { return calls == 1; }));
                    }));
        EXPECT_TRUE(eventually([&] { return gone(record); }));
        errno = 0;
        EXPECT_EQ(vosTimerDel(&record), -1);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_THAT(Faults::record([&] { vosTimerDel(&record); }), IsEmpty()) << "the dead handle is not touched";
        EXPECT_EQ(calls, 1);
    });
}

TEST(IntervalTimer, AnyOtherModeFiresOnceAndStaysUntilItIsDeleted) {
    if (!kExpiriesCanRun) GTEST_SKIP() << kWhyNot;
    run([] {
        for (const uint32_t mode : {2U, 0xFFFFFFFFU}) {
            calls = 0;
            VOS_TIMER record = timer(count, 100, mode);
            ASSERT_EQ(vosTimerAdd(&record), VOS_OK);
            EXPECT_TRUE(eventually([] { return calls == 1; }));
            letOthersFire(100, 3);
            EXPECT_EQ(calls, 1);
            EXPECT_FALSE(gone(record));
            EXPECT_EQ(vosTimerDel(&record), 0);
            EXPECT_EQ(vosTimerDel(&record), -1);
        }
    });
}

TEST(IntervalTimer, APeriodOfZeroNeverFires) {
    if (!kExpiriesCanRun) GTEST_SKIP() << kWhyNot;
    run([] {
        for (const uint32_t mode : {0U, 1U}) {
            VOS_TIMER record = timer(count, 0, mode);
            EXPECT_EQ(vosTimerAdd(&record), VOS_OK);
            letOthersFire(50, 4);
            EXPECT_EQ(calls, 0);
            EXPECT_EQ(vosTimerDel(&record), 0);
        }
    });
}

TEST(IntervalTimer, PeriodsAreMillisecondsOnTheWholeRange) {
    run([] {
        substitute("timer_settime", settimeOfTheTest);
        expectTimes(1500, 0, {1, 500'000'000}, {0, 0});
        expectTimes(1500, 1, {1, 500'000'000}, {1, 500'000'000});
        expectTimes(1500, 2, {1, 500'000'000}, {0, 0});
        expectTimes(999, 1, {0, 999'000'000}, {0, 999'000'000});
        expectTimes(0xFFFFFFFFU, 1, {4294967, 295'000'000}, {4294967, 295'000'000});
    });
}

TEST(IntervalTimer, ADeletedOneDoesNotFire) {
    if (!kExpiriesCanRun) GTEST_SKIP() << kWhyNot;
    run([] {
        VOS_TIMER record = timer(count, 300, 0);
        ASSERT_EQ(vosTimerAdd(&record), VOS_OK);
        EXPECT_EQ(vosTimerDel(&record), 0);
        letOthersFire(300, 2);
        EXPECT_EQ(calls, 0);
    });
}

TEST(IntervalTimer, AOneShotWhoseFunctionDeletesItIsNotDeletedTwice) {
    if (!kExpiriesCanRun) GTEST_SKIP() << kWhyNot;
    run([] {
        static VOS_TIMER record;
        static std::atomic<int> result = 77;
        record = timer(
            [](uint64_t) {
                result = vosTimerDel(&record);
                return 0;
            },
            10, 0);
        ASSERT_EQ(vosTimerAdd(&record), VOS_OK);
        EXPECT_TRUE(eventually([] { return result != 77; }));
        EXPECT_EQ(result, 0);
        letOthersFire(20, 2);
        EXPECT_EQ(vosTimerDel(&record), -1);
        EXPECT_EQ(errno, EINVAL);
    });
}

TEST(IntervalTimer, ARecordMayBeUsedAgain) {
    if (!kExpiriesCanRun) GTEST_SKIP() << kWhyNot;
    run([] {
        VOS_TIMER record = timer(count, 5, 0);
        for (int round = 1; round <= 20; ++round) {
            ASSERT_EQ(vosTimerAdd(&record), VOS_OK);
            ASSERT_TRUE(eventually([&] { return gone(record); }));
            EXPECT_EQ(calls, round);
        }
    });
}

TEST(IntervalTimer, OfAThousandNoneIsLost) {
    if (!kExpiriesCanRun) GTEST_SKIP() << kWhyNot;
    run([] {
        constexpr std::size_t kTimers = 1000;
        static std::array<std::atomic<int>, kTimers> fired{};
        std::vector<VOS_TIMER> records(kTimers);
        for (std::size_t i = 0; i < kTimers; ++i) {
            records[i] = {[](uint64_t index) {
                              ++fired.at(index);
                              return 0;
                          },
                          i, static_cast<uint32_t>(1 + i % 100), 0, nullptr};
            ASSERT_EQ(vosTimerAdd(&records[i]), VOS_OK) << i;
        }
        EXPECT_TRUE(eventually([&] { return std::ranges::all_of(records, gone); }));
        EXPECT_TRUE(std::ranges::all_of(fired, [](const auto &times) { return times == 1; }));
    });
}

TEST(IntervalTimer, ADeletionThatMeetsTheExpiryDeletesOnce) {
    if (!kExpiriesCanRun) GTEST_SKIP() << kWhyNot;
    run([] {
        /* The call that may still be on its way looks at its record once more, so each round has its own. */
        std::vector<VOS_TIMER> records(300, timer(count, 1, 0));
        for (VOS_TIMER &record : records) {
            calls = 0;
            ASSERT_EQ(vosTimerAdd(&record), VOS_OK);
            ASSERT_TRUE(eventually([] { return calls == 1; }));
            const auto deletions = Faults::record([&] { vosTimerDel(&record); });
            EXPECT_LE(std::ranges::count(deletions, "timer_delete"), 1);
            ASSERT_TRUE(gone(record));
            ASSERT_EQ(vosTimerDel(&record), -1);
        }
        letOthersFire(50, 1);
    });
}

TEST(IntervalTimer, FailingStepsAreNamedByTheirNumbers) {
    const auto attempts = failEachCall([] {},
                                       [] {
                                           VOS_TIMER record = timer(count, 60000, 1);
                                           const int32_t result = vosTimerAdd(&record);
                                           const int32_t deleted = vosTimerDel(&record);
                                           if (deleted != 0) vosTimerDel(&record);
                                           return result * 10L + deleted;
                                       });
    ASSERT_EQ(attempts.size(), 3U);
    EXPECT_EQ(at(attempts, "timer_create#1").result, -11) << "nothing was made, nothing can be deleted";
    EXPECT_EQ(at(attempts, "timer_create#1").outcome.output, "\r\nvosTimerAdd 1873 rc = -1 ");
    EXPECT_EQ(at(attempts, "timer_settime#1").result, -10) << "the timer stays, and can be deleted";
    EXPECT_EQ(at(attempts, "timer_settime#1").outcome.output, "\r\nvosTimerAdd 1893 rc = -1 ");
    EXPECT_EQ(at(attempts, "timer_delete#1").result, -1);
    EXPECT_EQ(at(attempts, "timer_delete#1").outcome.output, "");
}

TEST(IntervalTimer, ADeletionThatFailsLeavesTheTimerToBeDeleted) {
    run([] {
        VOS_TIMER record = timer(count, 60000, 1);
        ASSERT_EQ(vosTimerAdd(&record), VOS_OK);
        Faults::arm({.call = "timer_delete"});
        EXPECT_EQ(vosTimerDel(&record), -1);
        EXPECT_EQ(errno, EIO);
        EXPECT_TRUE(Faults::disarm());
        EXPECT_EQ(vosTimerDel(&record), 0);
    });
}

TEST(IntervalTimer, NullIsRefused) {
    const Outcome outcome = run([] {
        VOS_TIMER record = timer(nullptr, 10, 0);
        EXPECT_EQ(vosTimerAdd(&record), VOS_ERR_PARAM);
        EXPECT_EQ(vosTimerAdd(nullptr), VOS_ERR_PARAM);
        EXPECT_EQ(vosTimerDel(nullptr), VOS_ERR_PARAM);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosTimerAdd:parameter error.", "vosTimerAdd:parameter error.",
                                                "vosTimerDel:parameter error."));
}

TEST(IntervalTimer, NothingRunsInInterruptContext) {
    run([] { EXPECT_EQ(vosInInterrupt(), 0); });
}
