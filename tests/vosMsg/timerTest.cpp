/* SPDX-License-Identifier: MIT */
/* Message-loop timers. */
#include <chrono>

#include "peer.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

using Clock = std::chrono::steady_clock;

std::vector<uint64_t> fired;
std::vector<uint32_t> lateness;
std::function<void()> inCallback;

void note(uint32_t late, uint64_t argument) {
    fired.push_back(argument);
    lateness.push_back(late);
    if (inCallback) inCallback();
}

VOS_MSG_TIMER *timer(uint32_t periodic, uint32_t ms, uint64_t argument = 1, VOS_MSG_TIMER_PROC proc = note) {
    VOS_MSG_TIMER *handle = nullptr;
    EXPECT_EQ(vosTimerRegister(periodic, ms, proc, &handle, argument), VOS_OK);
    return handle;
}

/* Moves the start of the timer into the past, so that the test need not wait. */
void age(VOS_MSG_TIMER *handle, long seconds) { handle->stStart.tv_sec -= seconds; }

long run(uint32_t timeoutMs) {
    const auto before = Clock::now();
    EXPECT_EQ(receive(100, timeoutMs).result, VOS_ERR_TIMEOUT);
    return std::chrono::duration_cast<Milliseconds>(Clock::now() - before).count();
}

/* A sanitizer does not reuse freed memory at once, so that it finds a late access. */
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kFreedMemoryComesBack = false;
#else
constexpr bool kFreedMemoryComesBack = true;
#endif

/* The C library keeps a few freed blocks of each size in a cache that calloc() does not use. Once it is full, the next
 * block of that size that is freed is the one that calloc() returns. */
void fillTheCacheOfFreedBlocks(std::size_t size) {
    std::array<void *, 16> blocks{};
    for (void *&block : blocks) block = malloc(size);
    for (void *block : blocks) free(block);
}

/* Whether a new block has the address of a freed one. Always true with a sanitizer, which does not reuse it. */
bool liesWhere(const void *freed, const void *block) { return block == freed || !kFreedMemoryComesBack; }

Outcome scenario(const std::function<void()> &body) {
    return vostest::run([&] {
        openChannel("A");
        const int blocks = Faults::liveBlocks();
        body();
        while (g_pVosMsgTimerFirst != nullptr) vosTimerCancel(g_pVosMsgTimerFirst);
        EXPECT_EQ(Faults::liveBlocks(), blocks);
    });
}

}  // namespace

TEST(Timer, AOneShotTimerFiresOnceAndItsHandleBecomesInvalid) {
    scenario([] {
        VOS_MSG_TIMER *const handle = timer(0, 100);
        const long waited = run(1000);
        EXPECT_GE(waited, 1095); /* after the timer the time-out starts again from 0 */
        EXPECT_THAT(fired, ElementsAre(1u));
        EXPECT_LT(lateness[0], 500u);
        EXPECT_EQ(g_pVosMsgTimerFirst, nullptr);
        EXPECT_EQ(vosTimerStop(handle), VOS_ERROR);
        EXPECT_EQ(vosTimerStart(handle, 100), VOS_ERROR);
        EXPECT_EQ(vosTimerCancel(handle), VOS_ERROR);
    });
}

TEST(Timer, WithAPeriodicTimerAndNoTimeOutTheCallNeverTimesOut) {
    scenario([] {
        timer(1, 30);
        inCallback = [] {
            if (fired.size() != 5) return;
            EXPECT_TRUE(Peer{}.send("/tmp/vos/A", application("enough")));
        };
        EXPECT_EQ(receive(100, 0xFFFFFFFF).bytes.substr(0, 6), "enough");
        EXPECT_GE(fired.size(), 5u);
    });
}

TEST(Timer, ATimerDueWithinTheTimeOutRestartsIt) {
    scenario([] {
        timer(0, 100);
        EXPECT_GE(run(300), 395);
        EXPECT_THAT(fired, ElementsAre(1u));
    });
}

TEST(Timer, ATimerBeyondTheTimeOutDoesNotFire) {
    scenario([] {
        timer(0, 5000);
        EXPECT_LT(run(20), 4000);
        EXPECT_THAT(fired, IsEmpty());
    });
}

TEST(Timer, StoppedItDoesNotFireAndStartedItCountsFromNow) {
    scenario([] {
        VOS_MSG_TIMER *const handle = timer(0, 10);
        EXPECT_EQ(vosTimerStop(handle), VOS_OK);
        age(handle, 100);
        run(10);
        EXPECT_THAT(fired, IsEmpty());
        const auto before = Clock::now();
        EXPECT_EQ(vosTimerStart(handle, 200), VOS_OK);
        inCallback = [&] { EXPECT_GE(Clock::now() - before, Milliseconds(199)); };
        run(300);
        EXPECT_THAT(fired, ElementsAre(1u));
    });
}

TEST(Timer, CancelledItIsFreedAndASecondCancelFails) {
    const Outcome outcome = scenario([] {
        VOS_MSG_TIMER *const handle = timer(1, 10);
        EXPECT_EQ(vosTimerCancel(handle), VOS_OK);
        EXPECT_EQ(vosTimerCancel(handle), VOS_ERROR);
        EXPECT_EQ(vosTimerCancel(nullptr), VOS_ERR_PARAM);
        EXPECT_EQ(vosTimerStart(nullptr, 1), VOS_ERROR);
        EXPECT_EQ(vosTimerStop(nullptr), VOS_ERROR);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosTimerCancel:parameter error."));
}

TEST(Timer, WithoutACallbackItExpiresToo) {
    scenario([] {
        timer(0, 0, 1, nullptr);
        VOS_MSG_TIMER *const periodic = timer(1, 1000, 2, nullptr);
        age(periodic, 2);
        const long start = periodic->stStart.tv_sec;
        run(10);
        EXPECT_EQ(g_pVosMsgTimerFirst, periodic);
        EXPECT_GT(periodic->stStart.tv_sec, start);
    });
}

TEST(Timer, TheListIsInOrderOfRegistrationAndTheRecordsAreFilled) {
    scenario([] {
        VOS_MSG_TIMER *const first = timer(0, 1000, 11);
        VOS_MSG_TIMER *const second = timer(5, 2000, 0xFFFFFFFFFFFFFFFF);
        EXPECT_EQ(g_pVosMsgTimerFirst, first);
        EXPECT_EQ(first->pNext, second);
        EXPECT_EQ(second->pNext, nullptr);
        EXPECT_EQ(first->ulSerial, 0u);
        EXPECT_EQ(second->ulSerial, 1u);
        EXPECT_EQ(g_ulVosMsgMagic, 2u);
        EXPECT_EQ(second->ulPeriodic, 5u);
        EXPECT_EQ(second->ulIntervalMs, 2000u);
        EXPECT_EQ(second->ulUserArg, 0xFFFFFFFFFFFFFFFFu);
        EXPECT_EQ(second->pProc, note);
        EXPECT_EQ(second->ulRunning, 1u);
        EXPECT_NE(second->stStart.tv_sec, 0);
    });
}

TEST(Timer, ATimerThatIsOverdueByManyIntervalsFiresOnceWithItsDelay) {
    scenario([] {
        VOS_MSG_TIMER *const handle = timer(1, 1000);
        age(handle, 10);
        run(10);
        EXPECT_THAT(fired, ElementsAre(1u));
        EXPECT_GE(lateness[0], 8999u);
        EXPECT_LT(lateness[0], 10000u);
    });
}

TEST(Timer, AfterTheClockStepsBackBeyondTheStartTheUnsignedDifferenceFiresIt) {
    scenario([] {
        VOS_MSG_TIMER *const handle = timer(0, 1000);
        age(handle, -10); /* the start is in the future */
        run(0);
        EXPECT_THAT(fired, ElementsAre(1u));
        EXPECT_GE(lateness[0], 0xFFFFFFFFu - 11000 - 1000);
        EXPECT_LE(lateness[0], 0xFFFFFFFFu - 9000 - 1000);
    });
}

TEST(Timer, ACallbackMayCancelItsOwnTimer) {
    for (const uint32_t periodic : {0u, 1u}) {
        scenario([=] {
            static VOS_MSG_TIMER *handle;
            handle = timer(periodic, 0);
            inCallback = [] { EXPECT_EQ(vosTimerCancel(handle), VOS_OK); };
            run(20);
            EXPECT_THAT(fired, ElementsAre(1u));
        });
    }
}

TEST(Timer, ACallbackMayCancelItsOwnTimerAndRegisterAnotherInItsMemory) {
    scenario([] {
        static VOS_MSG_TIMER *handle;
        handle = timer(0, 0);
        inCallback = [] {
            if (fired.size() > 1) return;
            const VOS_MSG_TIMER *const cancelled = handle;
            fillTheCacheOfFreedBlocks(sizeof *cancelled);
            EXPECT_EQ(vosTimerCancel(handle), VOS_OK);
            handle = timer(0, 50, 2);
            EXPECT_TRUE(liesWhere(cancelled, handle));
        };
        run(100);
        EXPECT_THAT(fired, ElementsAre(1u, 2u));
    });
}

TEST(Timer, ACallbackMayCancelTheTimerThatFollows) {
    scenario([] {
        static VOS_MSG_TIMER *next;
        timer(0, 0, 1);
        next = timer(0, 0, 2);
        timer(0, 0, 3);
        inCallback = [] {
            if (fired.size() != 1) return;
            EXPECT_EQ(vosTimerCancel(next), VOS_OK);
        };
        run(20);
        EXPECT_THAT(fired, ElementsAre(1u, 3u));
    });
}

TEST(Timer, ATimerRegisteredOrRestartedByACallbackShortensTheWaitThatFollows) {
    scenario([] {
        timer(0, 0, 1);
        inCallback = [] {
            if (fired.size() == 1) timer(0, 50, 2);
        };
        EXPECT_GE(run(200), 245);
        EXPECT_THAT(fired, ElementsAre(1u, 2u));
    });
    scenario([] {
        static VOS_MSG_TIMER *earlier;
        earlier = timer(0, 100000, 1);
        timer(0, 0, 2);
        inCallback = [] {
            if (fired.size() != 1) return;
            EXPECT_EQ(vosTimerStart(earlier, 50), VOS_OK);
        };
        EXPECT_GE(run(200), 245);
        EXPECT_THAT(fired, ElementsAre(2u, 1u));
    });
}

TEST(Timer, ATimerThatACallbackMovesLaterStopsOrCancelsDoesNotShortenTheWaitThatFollows) {
    const std::function<void(VOS_MSG_TIMER *)> changes[] = {
        [](VOS_MSG_TIMER *other) { EXPECT_EQ(vosTimerStart(other, 100000), VOS_OK); },
        [](VOS_MSG_TIMER *other) { EXPECT_EQ(vosTimerStop(other), VOS_OK); },
        [](VOS_MSG_TIMER *other) { EXPECT_EQ(vosTimerCancel(other), VOS_OK); },
    };
    for (const auto &change : changes)
        scenario([&] {
            VOS_MSG_TIMER *const other = timer(0, 100, 1);
            timer(0, 0, 2);
            inCallback = [&] { change(other); };
            /* one wait, of the whole time-out: a second one would be for the other timer */
            EXPECT_THAT(Faults::record([] { EXPECT_GE(run(300), 295); }), testing::Contains("select").Times(1));
            EXPECT_THAT(fired, ElementsAre(2u));
        });
}

TEST(Timer, AOneShotTimerThatItsOwnCallbackRestartsIsGoneAfterIt) {
    scenario([] {
        static VOS_MSG_TIMER *handle;
        handle = timer(0, 0);
        inCallback = [] { EXPECT_EQ(vosTimerStart(handle, 10), VOS_OK); };
        run(50);
        EXPECT_THAT(fired, ElementsAre(1u));
        EXPECT_EQ(g_pVosMsgTimerFirst, nullptr);
    });
}

TEST(Timer, OnlyATimerWithARunningWordOfOneIsExamined) {
    scenario([] {
        VOS_MSG_TIMER *const handle = timer(0, 0);
        for (const uint32_t other : {0u, 2u, 0xFFFFFFFFu}) {
            handle->ulRunning = other;
            run(0);
            EXPECT_THAT(fired, IsEmpty());
        }
        handle->ulRunning = 1;
        run(0);
        EXPECT_THAT(fired, ElementsAre(1u));
    });
}

TEST(Timer, WhenTheClockIsSetForwardItFiresEarly) {
    scenario([] {
        age(timer(0, 3600000), 3600); /* as if the clock had been set an hour forward */
        run(0);
        EXPECT_THAT(fired, ElementsAre(1u));
        EXPECT_LT(lateness[0], 10000u);
    });
}

TEST(Timer, APeriodicTimerWithoutAnIntervalDoesNotStarveTheSockets) {
    scenario([] {
        timer(1, 0);
        EXPECT_TRUE(Peer{}.send("/tmp/vos/A", application("served")));
        EXPECT_EQ(receive(100, 1000).bytes.substr(0, 6), "served");
    });
}

TEST(Timer, TimersFireWhileMessagesCome) {
    Process server = start([] {
        openChannel("A");
        timer(1, 20);
        ready();
        for (uint32_t served = 0; served < 300;) {
            const Received request = receive(100, 20000);
            ASSERT_GE(request.result, 0);
            ++served;
            EXPECT_EQ(vosMsgResp(0, served, "", 0, &request.peer), VOS_OK);
        }
        EXPECT_GE(fired.size(), 5u);
    });
    server.awaitReady();
    vostest::run([] {
        for (uint32_t i = 1; i <= 300; ++i) {
            char nothing = 0;
            uint32_t code = 0;
            EXPECT_EQ(vosMsgSend("A", &nothing, 0, 0, &code, 20000, 0), VOS_OK);
            EXPECT_EQ(code, i);
            const timespec gap{0, 1000000}; /* messages at equal intervals */
            nanosleep(&gap, nullptr);
        }
    });
    server.finish();
}

TEST(Timer, ANullHandleIsRefused) {
    const Outcome outcome = scenario([] { EXPECT_EQ(vosTimerRegister(0, 1, note, nullptr, 0), VOS_ERR_PARAM); });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosTimerRegister:parameter error."));
}

TEST(Timer, TheTracesOfRegistrationCancellationAndExpiry) {
    const Outcome outcome = scenario([] {
        vosDebugConfig(VOS_DEBUG_TRACE);
        VOS_MSG_TIMER *const handle = timer(0, 0);
        timer(0, 0);
        vosTimerCancel(handle);
        receive(100, 0);
        vosDebugConfig(0);
    });
    char address[32];
    snprintf(address, sizeof address, "0x%lX", reinterpret_cast<unsigned long>(note));
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosTimerRegister:start.", "vosTimerRegister:end return 0.", "vosTimerRegister:start.",
                            "vosTimerRegister:end return 0.", "vosTimerCancel:start.", "vosTimerCancel:end return 0.",
                            "vosMsgRecv:start.", std::string("vosMsgTimerProcess:execute func ") + address + ".",
                            "vosMsgRecv:select timeout."));
}

TEST(Timer, EachFailingCallOfARegistrationIsNamed) {
    const auto attempts = failEachCall([] { strcpy(szVosProcName, "scenario"); },
                                       [] {
                                           VOS_MSG_TIMER *handle = nullptr;
                                           const long result = vosTimerRegister(0, 1, note, &handle, 0);
                                           EXPECT_EQ(handle, g_pVosMsgTimerFirst);
                                           return result;
                                       });
    ASSERT_EQ(attempts.size(), 2u);
    expectNothingKept(attempts);
    EXPECT_EQ(at(attempts, "calloc#1").result, VOS_ERR_MEMORY);
    EXPECT_THAT(at(attempts, "calloc#1").messages, ElementsAre("vosTimerRegister:malloc failed."));
    EXPECT_EQ(at(attempts, "gettimeofday#1").result, VOS_ERROR);
    EXPECT_THAT(at(attempts, "gettimeofday#1").messages, ElementsAre(errnoLine("vosTimerRegister:gettimeofday", EIO)));
}

namespace {

Attempt withoutClock(int occurrence, uint32_t intervalMs, const std::function<long()> &action) {
    const auto prepare = [=] {
        openChannel("A");
        timer(1, intervalMs);
    };
    return failCall({.call = "gettimeofday", .occurrence = occurrence}, prepare, action);
}

const std::string kClockLine = errnoLine("vosMsgTimerProcess:gettimeofday", EIO);

}  // namespace

TEST(Timer, WithoutTheClockItIsNotExaminedInThisTurn) {
    const Attempt attempt = withoutClock(1, 0, [] {
        const long result = receive(100, 0).result;
        EXPECT_THAT(fired, IsEmpty());
        return result;
    });
    EXPECT_EQ(attempt.result, VOS_ERR_TIMEOUT);
    EXPECT_THAT(attempt.messages, ElementsAre(kClockLine));
}

TEST(Timer, WithoutTheClockThePeriodBeginsWhenItWasFoundDue) {
    const Attempt attempt = withoutClock(2, 1000, [] {
        age(g_pVosMsgTimerFirst, 100);
        const long start = g_pVosMsgTimerFirst->stStart.tv_sec;
        const long result = receive(100, 0).result;
        EXPECT_THAT(fired, ElementsAre(1u));
        EXPECT_GE(g_pVosMsgTimerFirst->stStart.tv_sec, start + 100);
        return result;
    });
    EXPECT_EQ(attempt.result, VOS_ERR_TIMEOUT);
    EXPECT_THAT(attempt.messages, ElementsAre(kClockLine));
}

TEST(Timer, WithoutTheClockTheWaitIsTheOneFoundBeforeTheCallbacks) {
    const Attempt attempt = withoutClock(3, 150, [] {
        age(g_pVosMsgTimerFirst, 100);
        inCallback = [] { EXPECT_TRUE(fired.size() == 1 || Peer{}.send("/tmp/vos/A", application("enough"))); };
        const auto before = Clock::now();
        const long result = receive(100, 0xFFFFFFFF).result;
        EXPECT_GE(Clock::now() - before, Milliseconds(145));
        return result;
    });
    EXPECT_EQ(attempt.result, 38);
    EXPECT_THAT(attempt.messages, ElementsAre(kClockLine));
}

TEST(Timer, WithoutTheClockAStartFailsWithoutALineAndChangesNothing) {
    const Attempt attempt = withoutClock(1, 9, [] {
        g_pVosMsgTimerFirst->ulRunning = 0;
        const long result = vosTimerStart(g_pVosMsgTimerFirst, 7);
        EXPECT_EQ(g_pVosMsgTimerFirst->ulRunning, 0u);
        EXPECT_EQ(g_pVosMsgTimerFirst->ulIntervalMs, 9u);
        return result;
    });
    EXPECT_EQ(attempt.result, VOS_ERROR);
    EXPECT_THAT(attempt.messages, IsEmpty());
}
