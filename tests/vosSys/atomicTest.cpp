/* SPDX-License-Identifier: MIT */
#include <gmock/gmock.h>

#include <atomic>
#include <thread>
#include <vector>

#include "support/faults.h"
#include "vos.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(Atomic, CountsAndReportsWhenItReachesZero) {
    run([] {
        VOS_ATOMIC counter;
        ASSERT_EQ(vosAtomicInit(&counter, 2), VOS_OK);
        EXPECT_EQ(vosAtomicDecAndTest(&counter), 0);
        EXPECT_EQ(vosAtomicDecAndTest(&counter), 1) << "1 becomes 0";
        EXPECT_EQ(vosAtomicDecAndTest(&counter), 0) << "0 wraps";
        EXPECT_EQ(vosAtomicRead(&counter), 0xFFFFFFFFU);
        EXPECT_EQ(vosAtomicIncAndTest(&counter), 1);
        EXPECT_EQ(vosAtomicIncAndTest(&counter), 0);
        vosAtomicInc(&counter);
        EXPECT_EQ(vosAtomicRead(&counter), 2U);
        vosAtomicDec(&counter);
        EXPECT_EQ(vosAtomicRead(&counter), 1U);
        vosAtomicSet(&counter, 77);
        EXPECT_EQ(vosAtomicRead(&counter), 77U);
        EXPECT_EQ(vosSemDelete(counter.pGuard), VOS_OK);
    });
}

TEST(Atomic, EightThreadsLoseNoCount) {
    run([] {
        VOS_ATOMIC counter;
        ASSERT_EQ(vosAtomicInit(&counter, 0), VOS_OK);
        std::vector<std::thread> threads;
        std::atomic<int> zeros = 0;
        for (int i = 0; i < 8; ++i)
            threads.emplace_back([&, i] {
                for (int n = 0; n < 5000; ++n) {
                    if (i % 2 == 0)
                        zeros += vosAtomicIncAndTest(&counter);
                    else
                        vosAtomicInc(&counter);
                    EXPECT_NE(vosAtomicRead(&counter), 0U);
                }
            });
        for (auto &thread : threads) thread.join();
        EXPECT_EQ(vosAtomicRead(&counter), 40000U);
        EXPECT_EQ(zeros, 0);
        EXPECT_EQ(vosSemDelete(counter.pGuard), VOS_OK);
    });
}

TEST(Atomic, SetAndReadTakeNoGuard) {
    run([] {
        VOS_ATOMIC counter;
        ASSERT_EQ(vosAtomicInit(&counter, 0), VOS_OK);
        EXPECT_THAT(Faults::record([&] {
                        vosAtomicSet(&counter, 5);
                        EXPECT_EQ(vosAtomicRead(&counter), 5U);
                    }),
                    IsEmpty());
        EXPECT_THAT(Faults::record([&] { vosAtomicInc(&counter); }),
                    ElementsAre("pthread_mutex_lock", "pthread_mutex_unlock"));
        EXPECT_EQ(vosSemTake(counter.pGuard, VOS_NO_WAIT), VOS_OK);
        std::thread([&] {
            vosAtomicSet(&counter, 9); /* does not wait for the guard */
            EXPECT_EQ(vosAtomicRead(&counter), 9U);
        }).join();
        EXPECT_EQ(vosSemGive(counter.pGuard), VOS_OK);
        EXPECT_EQ(vosSemDelete(counter.pGuard), VOS_OK);
    });
}

TEST(Atomic, WithoutAGuardThereIsNoCounter) {
    const auto attempts = failEachCall([] {},
                                       [] {
                                           VOS_ATOMIC counter{.ulValue = 3, .pGuard = nullptr};
                                           const int32_t result = vosAtomicInit(&counter, 7);
                                           EXPECT_EQ(counter.ulValue, result == VOS_OK ? 7U : 3U);
                                           if (result == VOS_OK && vosSemDelete(counter.pGuard) != VOS_OK)
                                               vosSemDelete(counter.pGuard); /* its own call failed first */
                                           return result;
                                       });
    EXPECT_EQ(at(attempts, "malloc#1").result, VOS_ERROR);
    EXPECT_EQ(at(attempts, "pthread_mutex_init#1").result, VOS_ERROR);
    for (const Attempt &each : attempts) EXPECT_THAT(each.messages, IsEmpty());
}

TEST(Atomic, NullIsRefused) {
    run([] {
        EXPECT_EQ(vosAtomicInit(nullptr, 7), VOS_ERR_PARAM);
        vosAtomicSet(nullptr, 7);
        vosAtomicInc(nullptr);
        vosAtomicDec(nullptr);
        EXPECT_EQ(vosAtomicRead(nullptr), 0U);
        EXPECT_EQ(vosAtomicIncAndTest(nullptr), 0);
        EXPECT_EQ(vosAtomicDecAndTest(nullptr), 0);
    });
}
