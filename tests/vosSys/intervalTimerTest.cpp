/* SPDX-License-Identifier: MIT */
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "support/faults.h"
#include "support/substitute.h"
#include "threads.h"
#include "vos.h"

using namespace vostest;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

using Clock = std::chrono::steady_clock;

/* The thread sanitizer does not see the threads that the C library makes inside itself, and code that it has
 * instrumented cannot run on them: a timer that fires ends the process. The tests without an expiry do run. */
#if defined(__SANITIZE_THREAD__)
constexpr bool kExpiriesCanRun = false;
#else
constexpr bool kExpiriesCanRun = true;
#endif
const char *const kWhyNot = "the thread sanitizer cannot follow the C library's timer threads";

std::atomic<int> calls = 0;
std::atomic<uint64_t> lastArgument = 0;

int32_t count(uint64_t argument) {
    lastArgument = argument;
    ++calls;
    return -1; /* ignored */
}

VOS_TIMER timer(VOS_TIMER_PROC proc, uint32_t periodMs, uint32_t mode) { return {proc, 42, periodMs, mode, nullptr}; }

/* Whether the one-shot timer has deleted itself. */
bool gone(VOS_TIMER &record) { return __atomic_load_n(&record.hTimer, __ATOMIC_ACQUIRE) == nullptr; }

/* Waits so long that a timer which must not fire would have fired: until other timers of the same period have fired. */
void letOthersFire(uint32_t periodMs, int times) {
    VOS_TIMER other = timer([](uint64_t) { return 0; }, periodMs, 0);
    for (int i = 0; i < times; ++i) {
        ASSERT_EQ(vosTimerAdd(&other), VOS_OK);
        ASSERT_TRUE(eventually([&] { return gone(other); }));
    }
}

/* The arguments with which the C library's timer calls were made. */
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
        EXPECT_THAT(Faults::record([&] { vosTimerDel(&record); }), Not(Contains("timer_delete")))
            << "the handle of a timer that is gone is not touched";
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

TEST(IntervalTimer, ADeletionDuringTheExpiryDeletesOnce) {
    if (!kExpiriesCanRun) GTEST_SKIP() << kWhyNot;
    run([] {
        /* A call that has not run yet still reads its record, so each round has a record of its own. */
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
    ASSERT_EQ(attempts.size(), 7U) << "the three calls, and four of the mutex";
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

TEST(IntervalTimer, ARecordWhoseTimerCouldNotBeCreatedHasNone) {
    run([] {
        VOS_TIMER record = timer(count, 10, 0);
        memset(&record.hTimer, 0xA5, sizeof record.hTimer); /* the record's memory had other content before */
        Faults::arm({.call = "timer_create", .error = EAGAIN});
        EXPECT_EQ(vosTimerAdd(&record), -1);
        EXPECT_TRUE(Faults::disarm());
        EXPECT_EQ(record.hTimer, nullptr);
        EXPECT_EQ(vosTimerDel(&record), -1);
        EXPECT_EQ(errno, EINVAL);
    });
}

TEST(IntervalTimer, TheTimerIsCreatedInTheRecord) {
    run([] {
        static VOS_TIMER record = timer(count, 60000, 1);
        substitute(
            "timer_create", +[](clockid_t, sigevent *notification, timer_t *handle) {
                EXPECT_EQ(handle, &record.hTimer);
                EXPECT_EQ(notification->sigev_value.sival_ptr, &record);
                return timer_create(CLOCK_MONOTONIC, notification, handle);
            });
        EXPECT_EQ(vosTimerAdd(&record), VOS_OK);
        EXPECT_EQ(vosTimerDel(&record), 0);
    });
}

TEST(IntervalTimer, ErrnoOfAFailureIsKeptWhenTheLineCannotBePrinted) {
    run([] {
        VOS_TIMER record = timer(count, 10, 0);
        close(STDOUT_FILENO);
        for (const char *const call : {"timer_create", "timer_settime"}) {
            Faults::arm({.call = call, .error = EAGAIN});
            EXPECT_EQ(vosTimerAdd(&record), -1);
            EXPECT_EQ(errno, EAGAIN) << call;
            EXPECT_TRUE(Faults::disarm());
        }
        EXPECT_EQ(vosTimerDel(&record), 0);
    });
}

/* The C library gives the new timer the handle of the one that was deleted just before. */
TEST(IntervalTimer, AOneShotThatItsFunctionRestartsFiresAgain) {
    if (!kExpiriesCanRun) GTEST_SKIP() << kWhyNot;
    run([] {
        static VOS_TIMER record;
        record = timer(
            [](uint64_t) {
                if (++calls < 5) {
                    EXPECT_EQ(vosTimerDel(&record), 0);
                    EXPECT_EQ(vosTimerAdd(&record), VOS_OK);
                }
                return 0;
            },
            10, 0);
        ASSERT_EQ(vosTimerAdd(&record), VOS_OK);
        EXPECT_TRUE(eventually([] { return calls == 5; }));
        EXPECT_TRUE(eventually([] { return gone(record); })) << "the last one is deleted";
    });
}

TEST(IntervalTimer, AOneShotWhoseFunctionEndsItsThreadIsGoneAndMayBeUsedAgain) {
    if (!kExpiriesCanRun) GTEST_SKIP() << kWhyNot;
    run([] {
        static VOS_TIMER record;
        record = timer(
            [](uint64_t) -> int32_t {
                ++calls;
                pthread_exit(nullptr);
            },
            1, 0);
        for (int round = 1; round <= 20; ++round) {
            ASSERT_EQ(vosTimerAdd(&record), VOS_OK);
            EXPECT_TRUE(eventually([round] { return calls == round; }));
            EXPECT_TRUE(eventually([] { return gone(record); }));
        }
    });
}

TEST(IntervalTimer, AOneShotThatIsRestartedWhileItsFunctionRunsFiresAgain) {
    if (!kExpiriesCanRun) GTEST_SKIP() << kWhyNot;
    run([] {
        static std::atomic<bool> goOn = false;
        VOS_TIMER record =
            timer([](uint64_t) { return ++calls == 1 && !eventually([] { return goOn.load(); }) ? -1 : 0; }, 10, 0);
        ASSERT_EQ(vosTimerAdd(&record), VOS_OK);
        EXPECT_TRUE(eventually([] { return calls == 1; }));
        EXPECT_EQ(vosTimerDel(&record), 0);
        record.ulPeriodMs = 200;
        ASSERT_EQ(vosTimerAdd(&record), VOS_OK);
        goOn = true;
        EXPECT_TRUE(eventually([] { return calls == 2; }));
        EXPECT_TRUE(eventually([&] { return gone(record); }));
    });
}

/* The thread of the call starts late: its timer has been deleted, and a newer one is armed. */
TEST(IntervalTimer, ACallThatComesAfterTheRestartDoesNotDeleteTheNewTimer) {
    if (!kExpiriesCanRun) GTEST_SKIP() << kWhyNot;
    run([] {
        static void (*expiry)(sigval) = nullptr;
        substitute(
            "timer_create", +[](clockid_t clock, sigevent *notification, timer_t *handle) {
                expiry = notification->sigev_notify_function;
                return timer_create(clock, notification, handle);
            });
        VOS_TIMER record = timer(count, 200, 0);
        ASSERT_EQ(vosTimerAdd(&record), VOS_OK);
        sigval late{};
        late.sival_ptr = &record;
        std::thread(expiry, late).join();
        EXPECT_EQ(calls, 1);
        EXPECT_FALSE(gone(record));
        EXPECT_TRUE(eventually([] { return calls == 2; }));
        EXPECT_TRUE(eventually([&] { return gone(record); }));
    });
}

/* A late call of the deleted timer that deleted the new one would end it before its time. */
TEST(IntervalTimer, RestartsDuringTheExpiryLoseNoTimer) {
    if (!kExpiriesCanRun) GTEST_SKIP() << kWhyNot;
    run([] {
        VOS_TIMER record = timer(count, 1, 0);
        for (int round = 0; round < 100; ++round) {
            record.ulPeriodMs = 1;
            const auto expiry = Clock::now() + std::chrono::microseconds(1000 + 3 * round);
            ASSERT_EQ(vosTimerAdd(&record), VOS_OK);
            while (Clock::now() < expiry) continue; /* the deletion comes at another point each time */
            vosTimerDel(&record);
            record.ulPeriodMs = 20;
            const auto begin = Clock::now();
            ASSERT_EQ(vosTimerAdd(&record), VOS_OK);
            ASSERT_TRUE(eventually([&] { return gone(record); }));
            ASSERT_GE(Clock::now() - begin, Milliseconds(20)) << round;
        }
        letOthersFire(20, 2); /* a late call may still read the record */
    });
}

TEST(IntervalTimer, ASlowPeriodicFunctionMayRunSeveralTimesAtOnce) {
    if (!kExpiriesCanRun) GTEST_SKIP() << kWhyNot;
    run([] {
        static std::atomic<bool> goOn = false;
        VOS_TIMER record = timer(
            [](uint64_t) {
                ++calls;
                EXPECT_TRUE(eventually([] { return goOn.load(); }));
                --calls;
                return 0;
            },
            10, 1);
        ASSERT_EQ(vosTimerAdd(&record), VOS_OK);
        EXPECT_TRUE(eventually([] { return calls >= 3; }));
        EXPECT_EQ(vosTimerDel(&record), 0);
        goOn = true;
        EXPECT_TRUE(eventually([] { return calls == 0; }));
    });
}

TEST(IntervalTimer, AForkWhileOtherThreadsUseTimersGivesAChildThatUsesTimers) {
    run([] {
        std::atomic<bool> stop = false;
        std::thread busy([&] {
            VOS_TIMER record = timer(count, 60000, 0);
            while (!stop) {
                vosTimerAdd(&record);
                vosTimerDel(&record);
            }
        });
        for (int i = 0; i < 200; ++i) {
            const pid_t child = fork();
            if (child == 0) {
                alarm(static_cast<unsigned>(deadline().count() / 1000)); /* instead of waiting for ever */
                VOS_TIMER none = timer(count, 60000, 0);
                _exit(vosTimerDel(&none) == -1 ? 0 : 1);
            }
            int status = -1;
            EXPECT_EQ(waitpid(child, &status, 0), child);
            EXPECT_EQ(status, 0);
        }
        stop = true;
        busy.join();
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
