/* SPDX-License-Identifier: MIT */
#include <gmock/gmock.h>
#include <pthread.h>
#include <semaphore.h>

#include <atomic>
#include <csignal>
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

/* Some tests unlock a mutex that they do not hold, or delete one that is locked, on purpose. The thread sanitizer must
 * not end them for that. It still looks for data races. */
extern "C" const char *__tsan_default_options() { return "report_mutex_bugs=0:report_destroy_locked=0"; }

namespace {

constexpr uint32_t kHalfASecond = 500000;

template <class Function>
auto inAnotherThread(Function function) {
    decltype(function()) result{};
    std::thread([&] { result = function(); }).join();
    return result;
}

/* The time that the clock returns, and the deadline that the library computes from it. */
timespec clockSays;
timespec deadlineSeen;
int clockOfTheTest(clockid_t clock, timespec *now) {
    EXPECT_EQ(clock, CLOCK_REALTIME);
    *now = clockSays;
    return 0;
}
int timedwaitOfTheTest(sem_t * /*semaphore*/, const timespec *deadline) {
    deadlineSeen = *deadline;
    return 0;
}

timespec deadlineOf(timespec now, uint32_t timeoutUs) {
    clockSays = now;
    substitute("clock_gettime", clockOfTheTest);
    substitute("sem_timedwait", timedwaitOfTheTest);
    VOS_SEM *const sem = vosSemBCreate(0);
    EXPECT_EQ(vosSemTake(sem, timeoutUs), VOS_OK);
    vosSemDelete(sem);
    return deadlineSeen;
}

void expectInstant(const timespec &instant, time_t seconds, long nanoseconds) {
    EXPECT_EQ(instant.tv_sec, seconds);
    EXPECT_EQ(instant.tv_nsec, nanoseconds);
}

}  // namespace

TEST(BinarySemaphore, ATakeWithoutWaitingFailsAtOnce) {
    const Outcome outcome = run([] {
        VOS_SEM *const sem = vosSemBCreate(0);
        EXPECT_EQ(vosSemTake(sem, VOS_NO_WAIT), VOS_ERROR);
        EXPECT_EQ(vosSemDelete(sem), VOS_OK);
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(BinarySemaphore, ATimedTakeEndsAfterItsTime) {
    run([] {
        VOS_SEM *const sem = vosSemBCreate(0);
        expectAbout(Milliseconds(500), duration([&] { EXPECT_EQ(vosSemTake(sem, kHalfASecond), VOS_ERR_TIMEOUT); }));
        EXPECT_EQ(vosSemDelete(sem), VOS_OK);
    });
}

TEST(BinarySemaphore, GivesBeyondOneAccumulate) {
    run([] {
        VOS_SEM *const sem = vosSemBCreate(0);
        for (int give = 0; give < 3; ++give) EXPECT_EQ(vosSemGive(sem), VOS_OK);
        for (int take = 0; take < 3; ++take) EXPECT_EQ(vosSemTake(sem, VOS_NO_WAIT), VOS_OK);
        EXPECT_EQ(vosSemTake(sem, VOS_NO_WAIT), VOS_ERROR);
        EXPECT_EQ(vosSemDelete(sem), VOS_OK);
    });
}

TEST(BinarySemaphore, TheInitialValueIsNotClamped) {
    run([] {
        VOS_SEM *const sem = vosSemBCreate(5);
        for (int take = 0; take < 5; ++take) EXPECT_EQ(vosSemTake(sem, 1000), VOS_OK);
        EXPECT_EQ(vosSemTake(sem, VOS_NO_WAIT), VOS_ERROR);
        EXPECT_EQ(vosSemDelete(sem), VOS_OK);
        EXPECT_EQ(vosSemBCreate(0x80000000U), nullptr) << "beyond what the C library counts";
    });
}

TEST(BinarySemaphore, AWaiterIsWokenByAGiveOfAnotherThread) {
    run([] {
        VOS_SEM *const sem = vosSemBCreate(0);
        std::atomic<pid_t> waiter = 0;
        std::thread thread([&] {
            waiter = gettid();
            EXPECT_EQ(vosSemTake(sem, VOS_WAIT_FOREVER), VOS_OK);
        });
        EXPECT_TRUE(eventually([&] { return waiter != 0 && sleeps(waiter); }));
        EXPECT_EQ(vosSemGive(sem), VOS_OK);
        thread.join();
        EXPECT_EQ(vosSemDelete(sem), VOS_OK);
    });
}

TEST(BinarySemaphore, ASignalInterruptsTheWaitAndThereIsNoRetry) {
    run([] {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(SIGUSR1, &action, nullptr);
        VOS_SEM *const sem = vosSemBCreate(0);
        std::atomic<pid_t> waiter = 0;
        for (const uint32_t timeout : {VOS_WAIT_FOREVER, 60'000'000U}) {
            waiter = 0;
            std::thread thread([&] {
                waiter = gettid();
                EXPECT_EQ(vosSemTake(sem, timeout), VOS_ERROR);
                EXPECT_EQ(errno, EINTR);
            });
            EXPECT_TRUE(eventually([&] { return waiter != 0 && sleeps(waiter); }));
            pthread_kill(thread.native_handle(), SIGUSR1);
            thread.join();
        }
        EXPECT_EQ(vosSemDelete(sem), VOS_OK);
    });
}

TEST(BinarySemaphore, EightThreadsHandOffEveryGiveExactlyOnce) {
    run([] {
        constexpr int kPerThread = 5000;
        VOS_SEM *const sem = vosSemBCreate(0);
        VOS_SEM *const done = vosSemBCreate(0);
        std::atomic<int> taken = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([&] {
                for (int n = 0; n < kPerThread; ++n) EXPECT_EQ(vosSemGive(sem), VOS_OK);
            });
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([&] {
                for (int n = 0; n < kPerThread; ++n) {
                    EXPECT_EQ(vosSemTake(sem, VOS_WAIT_FOREVER), VOS_OK);
                    ++taken;
                }
                vosSemGive(done);
            });
        for (auto &thread : threads) thread.join();
        EXPECT_EQ(taken, 4 * kPerThread);
        EXPECT_EQ(vosSemTake(sem, VOS_NO_WAIT), VOS_ERROR) << "nothing is left";
        for (int i = 0; i < 4; ++i) EXPECT_EQ(vosSemTake(done, VOS_NO_WAIT), VOS_OK);
        EXPECT_EQ(vosSemDelete(sem), VOS_OK);
        EXPECT_EQ(vosSemDelete(done), VOS_OK);
    });
}

TEST(MutexSemaphore, ATimedTakeOfAHeldOneFailsButIsNoTimeOut) {
    run([] {
        VOS_SEM *const sem = vosSemMCreate(0);
        std::thread([&] {
            errno = 0;
            expectAbout(Milliseconds(500), duration([&] { EXPECT_EQ(vosSemTake(sem, kHalfASecond), VOS_ERROR); }));
            EXPECT_EQ(errno, 0);
        }).join();
        EXPECT_EQ(vosSemGive(sem), VOS_OK);
        EXPECT_EQ(vosSemDelete(sem), VOS_OK);
    });
}

TEST(MutexSemaphore, AnEarlierErrnoOfATimeOutIsTakenForATimeOut) {
    run([] {
        VOS_SEM *const sem = vosSemMCreate(0);
        EXPECT_EQ(inAnotherThread([&] {
                      errno = ETIMEDOUT;
                      return vosSemTake(sem, 1000);
                  }),
                  VOS_ERR_TIMEOUT);
        EXPECT_EQ(vosSemGive(sem), VOS_OK);
        EXPECT_EQ(vosSemDelete(sem), VOS_OK);
    });
}

TEST(MutexSemaphore, CreatedTakenBelongsToTheCreatingThread) {
    run([] {
        VOS_SEM *const sem = vosSemMCreate(0);
        EXPECT_EQ(inAnotherThread([&] { return vosSemTake(sem, VOS_NO_WAIT); }), VOS_ERROR);
        EXPECT_EQ(inAnotherThread([&] { return vosSemGive(sem); }), VOS_ERROR);
        EXPECT_EQ(vosSemDelete(sem), VOS_ERROR) << "a taken mutex is refused";
        EXPECT_EQ(vosSemGive(sem), VOS_OK);
        EXPECT_EQ(inAnotherThread([&] { return vosSemTake(sem, VOS_NO_WAIT) + vosSemGive(sem); }), VOS_OK);
        EXPECT_EQ(vosSemDelete(sem), VOS_OK);
    });
}

TEST(MutexSemaphore, TheOwnerTakesItAgainAndGivesItAsOften) {
    run([] {
        for (VOS_SEM *const sem : {vosSemMCreate(1), vosSemMCreate(0xFFFFFFFFU), vosLockCreate()}) {
            EXPECT_EQ(vosSemTake(sem, VOS_WAIT_FOREVER), VOS_OK);
            EXPECT_EQ(vosSemTake(sem, VOS_NO_WAIT), VOS_OK);
            EXPECT_EQ(vosSemTake(sem, 1000), VOS_OK);
            for (int give = 0; give < 3; ++give) {
                EXPECT_EQ(inAnotherThread([&] { return vosSemTake(sem, VOS_NO_WAIT); }), VOS_ERROR);
                EXPECT_EQ(vosSemGive(sem), VOS_OK);
            }
            EXPECT_EQ(vosSemGive(sem), VOS_ERROR);
            EXPECT_EQ(vosSemDelete(sem), VOS_OK);
        }
    });
}

TEST(Lock, KeepsEightThreadsApart) {
    run([] {
        VOS_SEM *const lock = vosLockCreate();
        int counter = 0; /* not atomic: only the lock protects it */
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i)
            threads.emplace_back([&] {
                for (int n = 0; n < 5000; ++n) {
                    EXPECT_EQ(vosLockTake(lock, VOS_WAIT_FOREVER), VOS_OK);
                    ++counter;
                    EXPECT_EQ(vosLockGive(lock), VOS_OK);
                }
            });
        for (auto &thread : threads) thread.join();
        EXPECT_EQ(counter, 40000);
        EXPECT_EQ(vosLockDelete(lock), VOS_OK);
    });
}

TEST(Lock, TheInterruptFormStoresZeroFlagsAndIsTheSameLock) {
    run([] {
        VOS_SEM *const lock = vosLockCreate();
        uint64_t flags = ~0ULL;
        EXPECT_EQ(vosLockIrqTake(lock, &flags, VOS_NO_WAIT), VOS_OK);
        EXPECT_EQ(flags, 0U);
        EXPECT_EQ(inAnotherThread([&] { return vosLockTake(lock, VOS_NO_WAIT); }), VOS_ERROR);
        EXPECT_EQ(vosLockIrqGive(lock, 0xFFFF), VOS_OK);
        flags = 7;
        EXPECT_EQ(vosLockIrqTake(nullptr, &flags, VOS_NO_WAIT), VOS_ERR_PARAM);
        EXPECT_EQ(flags, 0U);
        EXPECT_EQ(vosLockIrqTake(lock, nullptr, VOS_NO_WAIT), VOS_ERR_PARAM);
        EXPECT_EQ(vosLockDelete(lock), VOS_OK);
    });
}

TEST(Semaphore, NullAndAnUnknownKindAreRefused) {
    const Outcome outcome = run([] {
        alignas(16) char record[256] = {};
        const uint32_t kind = 7;
        memcpy(record, &kind, sizeof kind);
        for (VOS_SEM *const sem : {static_cast<VOS_SEM *>(nullptr), reinterpret_cast<VOS_SEM *>(record)}) {
            for (const uint32_t timeout : {VOS_WAIT_FOREVER, VOS_NO_WAIT, 1U})
                EXPECT_EQ(vosSemTake(sem, timeout), VOS_ERR_PARAM);
            EXPECT_EQ(vosSemGive(sem), VOS_ERR_PARAM);
            EXPECT_EQ(vosSemDelete(sem), VOS_ERR_PARAM);
            EXPECT_EQ(vosLockTake(sem, VOS_NO_WAIT), VOS_ERR_PARAM);
            EXPECT_EQ(vosLockGive(sem), VOS_ERR_PARAM);
            EXPECT_EQ(vosLockIrqGive(sem, 0), VOS_ERR_PARAM);
            EXPECT_EQ(vosLockDelete(sem), VOS_ERR_PARAM);
        }
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(Deadline, IsTheTimeOfDayMovedByTheTimeOut) {
    run([] {
        expectInstant(deadlineOf({100, 0}, 2'500'000), 102, 500'000'000);
        expectInstant(deadlineOf({100, 0}, 1), 100, 1000);
        expectInstant(deadlineOf({100, 999'999'999}, 1), 101, 999);
        expectInstant(deadlineOf({100, 600'000'000}, 3'700'000), 104, 300'000'000);
        expectInstant(deadlineOf({100, 0}, 0x7FFFFFFF), 2247, 483'647'000);
    });
}

TEST(Deadline, ExactlyASecondOfNanosecondsIsNotCarried) {
    run([] {
        expectInstant(deadlineOf({100, 500'000'000}, 500'000), 100, 1'000'000'000);
        expectInstant(deadlineOf({100, 500'001'000}, 500'000), 101, 1000);
    });
}

TEST(Deadline, ATimeOutFrom0x80000000OnLiesInThePast) {
    run([] {
        expectInstant(deadlineOf({10000, 500'000'000}, 0x80000000U), 10000 - 2147, 500'000'000 - 483'648'000);
        expectInstant(deadlineOf({10000, 0}, 0xFFFFFFFEU), 10000, -2000);
    });
}

TEST(Deadline, ADeadlineThatTheCLibraryRejectsFailsAndIsNoTimeOut) {
    run([] {
        substitute("clock_gettime", clockOfTheTest);
        VOS_SEM *const sem = vosSemBCreate(0);
        clockSays = {100, 500'000'000};
        EXPECT_EQ(vosSemTake(sem, kHalfASecond), VOS_ERROR);
        EXPECT_EQ(errno, EINVAL);
        clockSays = {100, 0};
        EXPECT_EQ(vosSemTake(sem, 0xFFFFFFFEU), VOS_ERROR);
        EXPECT_EQ(errno, EINVAL);
        clockSays = {100, 600'000'000};
        EXPECT_EQ(vosSemTake(sem, kHalfASecond), VOS_ERR_TIMEOUT) << "one that is only past is a time-out";
        vosSemDelete(sem);
    });
}

TEST(Semaphore, EveryFailingCallOfABinaryOneIsPassedOn) {
    const auto attempts = failEachCall([] {},
                                       [] {
                                           VOS_SEM *const sem = vosSemBCreate(1);
                                           if (sem == nullptr) return 1000L;
                                           long failures = 0;
                                           const auto count = [&](int32_t result, long digit) {
                                               failures += result == VOS_OK ? 0 : digit;
                                           };
                                           count(vosSemTake(sem, VOS_WAIT_FOREVER), 1);
                                           count(vosSemGive(sem), 10);
                                           sem_post(reinterpret_cast<sem_t *>(reinterpret_cast<char *>(sem) + 8));
                                           count(vosSemTake(sem, VOS_NO_WAIT), 100);
                                           sem_post(reinterpret_cast<sem_t *>(reinterpret_cast<char *>(sem) + 8));
                                           count(vosSemTake(sem, 1000), 200);
                                           if (vosSemDelete(sem) != VOS_OK) {
                                               failures += 400;
                                               vosSemDelete(sem);
                                           }
                                           return failures;
                                       });
    expectNothingKept(attempts);
    const std::vector<std::pair<const char *, long>> expected{
        {"malloc#1", 1000},     {"sem_init#1", 1000},     {"sem_wait#1", 1},        {"sem_post#1", 10},
        {"sem_trywait#1", 100}, {"clock_gettime#1", 200}, {"sem_timedwait#1", 200}, {"sem_destroy#1", 400}};
    EXPECT_EQ(attempts.size(), expected.size());
    for (const auto &[point, result] : expected) EXPECT_EQ(at(attempts, point).result, result) << point;
    for (const Attempt &each : attempts) EXPECT_THAT(each.messages, IsEmpty());
}

TEST(Semaphore, EveryFailingCallOfAMutexOneIsPassedOn) {
    const auto attempts = failEachCall([] {},
                                       [] {
                                           VOS_SEM *const sem = vosSemMCreate(0);
                                           if (sem == nullptr) return 1000L;
                                           long failures = 0;
                                           int held = 1;
                                           for (const uint32_t timeout : {VOS_WAIT_FOREVER, VOS_NO_WAIT, 1000U})
                                               if (vosSemTake(sem, timeout) == VOS_OK)
                                                   ++held;
                                               else
                                                   failures += 1;
                                           for (; held > 0; --held)
                                               if (vosSemGive(sem) != VOS_OK) failures += 10;
                                           if (vosSemDelete(sem) != VOS_OK) {
                                               failures += 400;
                                               vosSemDelete(sem);
                                           }
                                           return failures;
                                       });
    expectNothingKept(attempts);
    const std::vector<std::pair<const char *, long>> expected{{"malloc#1", 1000},
                                                              {"pthread_mutexattr_init#1", 1000},
                                                              {"pthread_mutexattr_settype#1", 1000},
                                                              {"pthread_mutex_init#1", 1000},
                                                              {"pthread_mutexattr_destroy#1", 0},
                                                              {"pthread_mutex_lock#1", 1000},
                                                              {"pthread_mutex_lock#2", 1},
                                                              {"pthread_mutex_trylock#1", 1},
                                                              {"clock_gettime#1", 1},
                                                              {"pthread_mutex_timedlock#1", 1},
                                                              {"pthread_mutex_unlock#1", 10},
                                                              {"pthread_mutex_destroy#1", 400}};
    for (const auto &[point, result] : expected) EXPECT_EQ(at(attempts, point).result, result) << point;
    for (const Attempt &each : attempts) EXPECT_THAT(each.messages, IsEmpty());
}

TEST(Semaphore, AMutexThatCannotBeTakenAtItsCreationIsDestroyedAgain) {
    run([] {
        Faults::arm({.call = "pthread_mutex_lock"});
        EXPECT_THAT(Faults::record([] { EXPECT_EQ(vosSemMCreate(0), nullptr); }),
                    ElementsAre("malloc", "pthread_mutexattr_init", "pthread_mutexattr_settype", "pthread_mutex_init",
                                "pthread_mutexattr_destroy", "pthread_mutex_lock", "pthread_mutex_destroy"));
        EXPECT_TRUE(Faults::disarm());
    });
}
