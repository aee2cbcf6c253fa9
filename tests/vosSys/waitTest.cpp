/* SPDX-License-Identifier: MIT */
#include <gmock/gmock.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
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

/* A condition that returns at once, as a spurious wake-up does. */
int wokenForNothing(pthread_cond_t * /*condition*/, pthread_mutex_t * /*mutex*/) { return 0; }

timespec deadlineSeen;
int timedwaitOfTheTest(pthread_cond_t * /*condition*/, pthread_mutex_t * /*mutex*/, const timespec *deadline) {
    deadlineSeen = *deadline;
    return EINVAL;
}
int clockOfTheTest(clockid_t /*clock*/, timespec *now) {
    *now = {100, 500'000'000};
    return 0;
}

int32_t countOf(const VOS_WAIT *wait) {
    int32_t count = 0;
    memcpy(&count, wait, sizeof count);
    return count;
}

}  // namespace

TEST(Wait, GivesAreRememberedAndTakenOneByOne) {
    const Outcome outcome = run([] {
        VOS_WAIT *const wait = vosWaitCreate();
        EXPECT_EQ(vosWaitGive(wait), VOS_OK);
        EXPECT_EQ(vosWaitGive(wait), VOS_OK);
        EXPECT_EQ(countOf(wait), 2);
        EXPECT_EQ(vosWaitTake(wait, VOS_NO_WAIT), VOS_OK);
        EXPECT_EQ(vosWaitTake(wait, VOS_NO_WAIT), VOS_OK);
        EXPECT_EQ(vosWaitTake(wait, VOS_NO_WAIT), VOS_ERR_TIMEOUT);
        EXPECT_EQ(countOf(wait), 0);
        EXPECT_EQ(vosWaitDelete(wait), VOS_OK);
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(Wait, ATimedTakeEndsAfterItsTime) {
    run([] {
        VOS_WAIT *const wait = vosWaitCreate();
        expectAbout(Milliseconds(300), duration([&] { EXPECT_EQ(vosWaitTake(wait, 300'000), VOS_ERR_TIMEOUT); }));
        EXPECT_EQ(vosWaitDelete(wait), VOS_OK);
    });
}

TEST(Wait, AWaiterIsWokenByAGive) {
    run([] {
        VOS_WAIT *const wait = vosWaitCreate();
        for (const uint32_t timeout : {VOS_WAIT_FOREVER, 60'000'000U}) {
            std::atomic<pid_t> waiter = 0;
            std::thread thread([&] {
                waiter = gettid();
                EXPECT_EQ(vosWaitTake(wait, timeout), VOS_OK);
            });
            EXPECT_TRUE(eventually([&] { return waiter != 0 && sleeps(waiter); }));
            EXPECT_EQ(vosWaitGive(wait), VOS_OK);
            thread.join();
            EXPECT_EQ(countOf(wait), 0);
        }
        EXPECT_EQ(vosWaitDelete(wait), VOS_OK);
    });
}

TEST(Wait, EachGiveWakesAtMostOneWaiter) {
    run([] {
        VOS_WAIT *const wait = vosWaitCreate();
        std::atomic<int> woken = 0;
        std::array<std::atomic<pid_t>, 8> ids{};
        std::vector<std::thread> threads;
        for (auto &id : ids)
            threads.emplace_back([&] {
                id = gettid();
                EXPECT_EQ(vosWaitTake(wait, VOS_WAIT_FOREVER), VOS_OK);
                ++woken;
            });
        for (auto &id : ids) EXPECT_TRUE(eventually([&] { return id != 0 && sleeps(id); }));
        for (int give = 1; give <= 8; ++give) {
            EXPECT_EQ(vosWaitGive(wait), VOS_OK);
            EXPECT_TRUE(eventually([&] { return woken == give; }));
        }
        for (auto &thread : threads) thread.join();
        EXPECT_EQ(countOf(wait), 0);
        EXPECT_EQ(vosWaitDelete(wait), VOS_OK);
    });
}

TEST(Wait, AWakeUpWithoutAGiveReturnsAndTakesNothing) {
    run([] {
        substitute("pthread_cond_wait", wokenForNothing);
        VOS_WAIT *const wait = vosWaitCreate();
        EXPECT_EQ(vosWaitTake(wait, VOS_WAIT_FOREVER), VOS_OK);
        EXPECT_EQ(countOf(wait), 0);
        EXPECT_EQ(vosWaitDelete(wait), VOS_OK);
    });
}

TEST(Wait, TheDeadlineIsTheTimeOfDayMovedByTheTimeOut) {
    run([] {
        substitute("pthread_cond_timedwait", timedwaitOfTheTest);
        substitute("clock_gettime", clockOfTheTest);
        VOS_WAIT *const wait = vosWaitCreate();
        const auto expectDeadline = [&](uint32_t timeout, time_t seconds, long nanoseconds) {
            EXPECT_EQ(vosWaitTake(wait, timeout), VOS_ERROR);
            EXPECT_EQ(deadlineSeen.tv_sec, seconds);
            EXPECT_EQ(deadlineSeen.tv_nsec, nanoseconds);
        };
        expectDeadline(VOS_NO_WAIT, 100, 500'000'000);
        expectDeadline(500'000, 100, 1'000'000'000);
        expectDeadline(500'001, 101, 1000);
        expectDeadline(0xFFFFFFFEU, 100, 499'998'000);
        EXPECT_EQ(vosWaitDelete(wait), VOS_OK);
    });
}

TEST(Wait, AFullCountStaysFull) {
    run([] {
        VOS_WAIT *const wait = vosWaitCreate();
        const int32_t full = 0x7FFFFFFF;
        memcpy(static_cast<void *>(wait), &full, sizeof full);
        EXPECT_EQ(vosWaitGive(wait), VOS_OK);
        EXPECT_EQ(countOf(wait), full);
        EXPECT_EQ(vosWaitDelete(wait), VOS_OK);
    });
}

TEST(Wait, NullIsRefused) {
    run([] {
        EXPECT_EQ(vosWaitTake(nullptr, VOS_NO_WAIT), VOS_ERR_PARAM);
        EXPECT_EQ(vosWaitGive(nullptr), VOS_ERR_PARAM);
        EXPECT_EQ(vosWaitDelete(nullptr), VOS_ERR_PARAM);
    });
}

TEST(Wait, AnObjectWithAWaiterIsNotDeleted) {
    run([] {
        VOS_WAIT *const wait = vosWaitCreate();
        std::atomic<pid_t> waiter = 0;
        std::thread thread([&] {
            waiter = gettid();
            EXPECT_EQ(vosWaitTake(wait, VOS_WAIT_FOREVER), VOS_OK);
        });
        EXPECT_TRUE(eventually([&] { return waiter != 0 && sleeps(waiter); }));
        EXPECT_EQ(vosWaitDelete(wait), VOS_ERROR);
        EXPECT_EQ(vosWaitGive(wait), VOS_OK) << "it is still usable";
        thread.join();
        EXPECT_EQ(vosWaitDelete(wait), VOS_OK);
    });
}

/* The number is negative then, and so may be the nanoseconds of the deadline, which the C library refuses. */
TEST(Wait, ATimeOutOfMoreThan2147SecondsFailsAtOnce) {
    run([] {
        const auto failed = [](int32_t result) { return result == VOS_ERROR || result == VOS_ERR_TIMEOUT; };
        VOS_WAIT *const wait = vosWaitCreate();
        EXPECT_TRUE(failed(vosWaitTake(wait, 3'600'000'000U)));
        EXPECT_EQ(vosWaitDelete(wait), VOS_OK);
        VOS_SEM *const sem = vosSemBCreate(0);
        EXPECT_TRUE(failed(vosSemTake(sem, 3'600'000'000U)));
        EXPECT_EQ(vosSemDelete(sem), VOS_OK);
    });
}

TEST(Wait, AFailedDeletionKeepsTheRecord) {
    static VOS_WAIT *volatile kept; /* still reachable, so that the sanitizer does not report it as lost */
    const auto deleteOne = [] {
        kept = vosWaitCreate();
        return vosWaitDelete(kept);
    };
    const Attempt mutex = failCall(
        {.call = "pthread_mutex_destroy", .error = EBUSY}, [] {}, deleteOne);
    EXPECT_EQ(mutex.result, VOS_ERROR);
    EXPECT_EQ(mutex.blocksKept, 1);
    const Attempt condition = failCall(
        {.call = "pthread_cond_destroy", .error = EBUSY}, [] {}, deleteOne);
    EXPECT_EQ(condition.result, VOS_ERROR);
    EXPECT_EQ(condition.blocksKept, 1);
}

/* All calls except the unlocking of the mutex, which cannot fail in the thread that has just locked it. */
TEST(Wait, EveryFailingCallIsPassedOn) {
    const auto action = [] {
        VOS_WAIT *const wait = vosWaitCreate();
        if (wait == nullptr) return 1000L;
        const int32_t given = vosWaitGive(wait);
        const int32_t taken = vosWaitTake(wait, VOS_NO_WAIT);
        const int32_t late = vosWaitTake(wait, 1000);
        if (vosWaitDelete(wait) != VOS_OK) vosWaitDelete(wait);
        return -100L * given - 10L * taken - late;
    };
    const std::vector<std::pair<const char *, long>> expected{
        {"malloc", 1000},
        {"pthread_mutex_init", 1000},
        {"pthread_cond_init", 1000},
        {"pthread_mutex_lock", 100 + 40 + 4}, /* not given: both takes find nothing */
        {"pthread_cond_signal", 100 + 4},     /* the event is given in spite of the failure */
        {"clock_gettime", 1},
        {"pthread_cond_timedwait", 1},
        {"pthread_mutex_destroy", 4},
        {"pthread_cond_destroy", 4}};
    std::vector<Attempt> attempts;
    for (const auto &[call, result] : expected) {
        attempts.push_back(failCall(
            {.call = call}, [] {}, action));
        EXPECT_EQ(attempts.back().result, result) << call;
        EXPECT_THAT(attempts.back().messages, IsEmpty());
    }
    attempts.push_back(failCall(
        {.call = "pthread_mutex_lock", .occurrence = 2}, [] {}, action));
    EXPECT_EQ(attempts.back().result, 10) << "the first take fails, the second one finds what was given";
    expectNothingKept(attempts);
}

TEST(Wait, AFailedCreationDestroysWhatItHadMade) {
    run([] {
        Faults::arm({.call = "pthread_cond_init", .error = ENOMEM});
        EXPECT_THAT(Faults::record([] { EXPECT_EQ(vosWaitCreate(), nullptr); }),
                    ElementsAre("malloc", "pthread_mutex_init", "pthread_cond_init", "pthread_mutex_destroy"));
        EXPECT_TRUE(Faults::disarm());
    });
}

TEST(Wait, AFailedWaitWithoutLimitReleasesTheLock) {
    run([] {
        VOS_WAIT *const wait = vosWaitCreate();
        Faults::arm({.call = "pthread_cond_wait", .error = EPERM});
        EXPECT_EQ(vosWaitTake(wait, VOS_WAIT_FOREVER), VOS_ERROR);
        EXPECT_TRUE(Faults::disarm());
        std::thread([&] { EXPECT_EQ(vosWaitGive(wait), VOS_OK); }).join();
        EXPECT_EQ(vosWaitTake(wait, VOS_WAIT_FOREVER), VOS_OK);
        EXPECT_EQ(vosWaitDelete(wait), VOS_OK);
    });
}

namespace {

/* Cancels a thread that waits for an event with that time-out. */
void cancelAWaiter(VOS_WAIT *wait, uint32_t timeout) {
    struct Waiter {
        VOS_WAIT *wait;
        uint32_t timeout;
        std::atomic<pid_t> id = 0;
    } waiter{wait, timeout};
    pthread_t thread{};
    const auto body = [](void *argument) -> void * {
        auto *const self = static_cast<Waiter *>(argument);
        self->id = gettid();
        vosWaitTake(self->wait, self->timeout);
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, nullptr, body, &waiter), 0);
    EXPECT_TRUE(eventually([&] { return waiter.id != 0 && sleeps(waiter.id); }));
    EXPECT_EQ(pthread_cancel(thread), 0);
    void *result = nullptr;
    EXPECT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
}

}  // namespace

TEST(Wait, AWaiterThatIsCancelledReleasesTheLock) {
    run([] {
        VOS_WAIT *const wait = vosWaitCreate();
        for (const uint32_t timeout : {VOS_WAIT_FOREVER, 600'000'000U}) {
            cancelAWaiter(wait, timeout);
            std::atomic<bool> given = false;
            std::thread giver([&] {
                EXPECT_EQ(vosWaitGive(wait), VOS_OK);
                given = true;
            });
            if (!eventually([&] { return given.load(); })) abort(); /* the giving thread waits for the lock for ever */
            giver.join();
            EXPECT_EQ(vosWaitTake(wait, VOS_NO_WAIT), VOS_OK) << "the event was not taken by the cancelled thread";
        }
        EXPECT_EQ(vosWaitDelete(wait), VOS_OK) << "nobody holds the mutex";
    });
}

/* Some wait, some are cancelled, events are given: every event is taken once. */
TEST(Wait, CancelledWaitersTakeNoEvents) {
    run([] {
        VOS_WAIT *const wait = vosWaitCreate();
        for (int round = 0; round < 20; ++round) {
            std::thread waiter([&] { EXPECT_EQ(vosWaitTake(wait, VOS_WAIT_FOREVER), VOS_OK); });
            cancelAWaiter(wait, VOS_WAIT_FOREVER);
            EXPECT_EQ(vosWaitGive(wait), VOS_OK);
            waiter.join();
            EXPECT_EQ(countOf(wait), 0);
        }
        EXPECT_EQ(vosWaitDelete(wait), VOS_OK);
    });
}
