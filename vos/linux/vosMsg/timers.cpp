/* SPDX-License-Identifier: MIT */
/* Message-loop timers. Each channel has a list of them, which its loop examines in every turn. */
#include "timers.h"

#include <sys/time.h>

#include <algorithm>
#include <cstdlib>

#include "../base/log.h"
#include "vosMsgChannel.h"

constinit VOS_MSG_TIMER *g_pVosMsgTimerFirst = nullptr;
constinit uint32_t g_ulVosMsgMagic = 0;
constinit VOS_MSG_TIMER *g_pVosMsgTimerFirst2 = nullptr;
constinit uint32_t g_ulVosMsgMagic2 = 0;

namespace vos {

constinit const TimerList kMainTimers{&g_pVosMsgTimerFirst, &g_ulVosMsgMagic};
constinit const TimerList kSecondTimers{&g_pVosMsgTimerFirst2, &g_ulVosMsgMagic2};

/* Applications walk the list and read the records. */
static_assert(sizeof(VOS_MSG_TIMER) == 64 && offsetof(VOS_MSG_TIMER, ulSerial) == 8);
static_assert(offsetof(VOS_MSG_TIMER, pProc) == 16 && offsetof(VOS_MSG_TIMER, ulIntervalMs) == 24);
static_assert(offsetof(VOS_MSG_TIMER, ulUserArg) == 32 && offsetof(VOS_MSG_TIMER, stStart) == 40);
static_assert(offsetof(VOS_MSG_TIMER, ulRunning) == 56);

}  // namespace vos

namespace {

/* The link that holds a record: the list's head or the pNext of the record before it. A handle is compared and never
 * read, because it may be the address of freed memory. */
VOS_MSG_TIMER **findLink(const vos::TimerList &timers, const VOS_MSG_TIMER *timer) {
    VOS_MSG_TIMER **link = timers.first;
    while (*link != nullptr && *link != timer) link = &(*link)->pNext;
    return *link != nullptr ? link : nullptr;
}

bool listed(const vos::TimerList &timers, const VOS_MSG_TIMER *timer) { return findLink(timers, timer) != nullptr; }

void addLast(const vos::TimerList &timers, VOS_MSG_TIMER *timer) {
    VOS_MSG_TIMER **link = timers.first;
    while (*link != nullptr) link = &(*link)->pNext;
    timer->pNext = nullptr;
    *link = timer;
}

bool removeAndFree(const vos::TimerList &timers, VOS_MSG_TIMER *timer) {
    VOS_MSG_TIMER **const link = findLink(timers, timer);
    if (link == nullptr) return false;
    *link = timer->pNext;
    free(timer);
    return true;
}

bool timeOfDay(vos::Caller me, timeval &now) {
    if (gettimeofday(&now, nullptr) == 0) return true;
    vos::errorErrno(me, "%s:gettimeofday failed errno:%d(%s).");
    return false;
}

/* In unsigned 32-bit arithmetic: if the clock was set back to before the start, the timer is due at once. */
uint32_t elapsedMs(const timeval &start, const timeval &now) {
    auto seconds = static_cast<uint32_t>(now.tv_sec - start.tv_sec);
    suseconds_t microseconds = now.tv_usec - start.tv_usec;
    if (microseconds < 0) {
        --seconds;
        microseconds += 1000000;
    }
    return seconds * 1000 + static_cast<uint32_t>(microseconds / 1000);
}

/* Whether the record is still the same timer after a callback. The callback may have freed it, and another timer may
 * already use its memory. */
struct Identity {
    const VOS_MSG_TIMER *timer;
    uint32_t serial;
    [[nodiscard]] bool stillIn(const vos::TimerList &timers) const {
        return listed(timers, timer) && timer->ulSerial == serial;
    }
};

/* Fires a due timer, and computes the milliseconds until it is due again. */
uint32_t fire(vos::Caller me, const vos::TimerList &timers, VOS_MSG_TIMER *timer, uint32_t late, const timeval &now) {
    const Identity identity{timer, timer->ulSerial};
    if (timer->pProc != nullptr) {
        vos::trace(me, "%s:execute func 0x%lX.", reinterpret_cast<unsigned long>(timer->pProc));
        timer->pProc(late, timer->ulUserArg);
    }
    if (!identity.stillIn(timers)) return vos::kForever;
    if (timer->ulPeriodic == 0) {
        removeAndFree(timers, timer);
        return vos::kForever;
    }
    if (!timeOfDay(me, timer->stStart)) timer->stStart = now;
    return timer->ulIntervalMs;
}

struct Processed {
    uint32_t next = vos::kForever;
    bool fired = false;
};

Processed vosMsgTimerProcess(const vos::TimerList &timers, VOS_MSG_TIMER *timer) {
    const vos::Caller me;
    timeval now{};
    if (!timeOfDay(me, now)) return {};
    const uint32_t elapsed = elapsedMs(timer->stStart, now);
    if (elapsed < timer->ulIntervalMs) return {timer->ulIntervalMs - elapsed, false};
    return {fire(me, timers, timer, elapsed - timer->ulIntervalMs, now), true};
}

/* The wait until the next timer after callbacks have run, which may have registered, restarted, stopped and cancelled
 * timers. Without a clock it is the wait that was found before the callbacks. */
uint32_t nearest(const vos::TimerList &timers, uint32_t withoutClock) {
    timeval now{};
    if (!timeOfDay("vosMsgTimerProcess", now)) return withoutClock;
    uint32_t least = vos::kForever;
    for (const VOS_MSG_TIMER *timer = *timers.first; timer != nullptr; timer = timer->pNext) {
        if (timer->ulRunning != 1) continue;
        const uint32_t elapsed = elapsedMs(timer->stStart, now);
        least = std::min(least, elapsed < timer->ulIntervalMs ? timer->ulIntervalMs - elapsed : 0);
    }
    return least;
}

struct Settings {
    uint32_t periodic;
    uint32_t intervalMs;
    VOS_MSG_TIMER_PROC proc;
    uint64_t argument;
};

int32_t registerTimer(vos::Caller me, const vos::TimerList &timers, const Settings &settings, VOS_MSG_TIMER **handle) {
    vos::trace(me, "%s:start.");
    if (handle == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    auto *const timer = static_cast<VOS_MSG_TIMER *>(calloc(1, sizeof(VOS_MSG_TIMER)));
    if (timer == nullptr) return vos::failed(me, VOS_ERR_MEMORY, "%s:malloc failed.");
    if (!timeOfDay(me, timer->stStart)) {
        free(timer);
        return VOS_ERROR;
    }
    timer->ulSerial = (*timers.serial)++;
    timer->ulPeriodic = settings.periodic;
    timer->pProc = settings.proc;
    timer->ulIntervalMs = settings.intervalMs;
    timer->ulUserArg = settings.argument;
    timer->ulRunning = 1;
    addLast(timers, timer);
    *handle = timer;
    return vos::ended(me, VOS_OK);
}

}  // namespace

uint32_t vos::runTimers(const TimerList &timers) {
    uint32_t least = kForever;
    bool fired = false;
    VOS_MSG_TIMER *next = nullptr;
    for (VOS_MSG_TIMER *timer = *timers.first; timer != nullptr; timer = next) {
        next = timer->pNext;
        if (timer->ulRunning != 1) continue;
        const Processed processed = vosMsgTimerProcess(timers, timer);
        least = std::min(least, processed.next);
        if (!processed.fired) continue;
        fired = true;
        if (!listed(timers, next))
            break; /* the callback has cancelled it; the timers behind it are looked at in the next turn */
    }
    return fired ? nearest(timers, least) : least;
}

int32_t vosTimerRegister(uint32_t ulPeriodic, uint32_t ulIntervalMs, VOS_MSG_TIMER_PROC pProc, VOS_MSG_TIMER **ppTimer,
                         uint64_t ulUserArg) {
    const vos::Caller me;
    return registerTimer(me, vos::kMainTimers, {ulPeriodic, ulIntervalMs, pProc, ulUserArg}, ppTimer);
}

int32_t vosTimerRegister2(uint32_t ulPeriodic, uint32_t ulIntervalMs, VOS_MSG_TIMER_PROC pProc, VOS_MSG_TIMER **ppTimer,
                          uint64_t ulUserArg) {
    const vos::Caller me;
    return registerTimer(me, vos::kSecondTimers, {ulPeriodic, ulIntervalMs, pProc, ulUserArg}, ppTimer);
}

/* This call and the two below find only the timers of the main channel. */
int32_t vosTimerCancel(VOS_MSG_TIMER *pTimer) {
    const vos::Caller me;
    vos::trace(me, "%s:start.");
    if (pTimer == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    return vos::ended(me, removeAndFree(vos::kMainTimers, pTimer) ? VOS_OK : VOS_ERROR);
}

int32_t vosTimerStart(VOS_MSG_TIMER *pTimer, uint32_t ulIntervalMs) {
    timeval now{};
    if (pTimer == nullptr || !listed(vos::kMainTimers, pTimer)) return VOS_ERROR;
    if (gettimeofday(&now, nullptr) != 0) return VOS_ERROR; /* this call writes no line at all */
    pTimer->ulIntervalMs = ulIntervalMs;
    pTimer->ulRunning = 1;
    pTimer->stStart = now;
    return VOS_OK;
}

int32_t vosTimerStop(VOS_MSG_TIMER *pTimer) {
    if (pTimer == nullptr || !listed(vos::kMainTimers, pTimer)) return VOS_ERROR;
    pTimer->ulRunning = 0;
    return VOS_OK;
}
