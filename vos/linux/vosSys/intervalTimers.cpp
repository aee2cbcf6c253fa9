/* SPDX-License-Identifier: MIT */
/* Timers that call a function on a thread of the system library's timer machinery. */
#include <cerrno>
#include <csignal>
#include <ctime>

#include "../base/log.h"
#include "vosSys.h"

namespace {

constexpr uint32_t kOneShot = 0;
constexpr uint32_t kPeriodic = 1;
/* How the printed lines name the step that failed. */
constexpr int kStepCreate = 1873;
constexpr int kStepArm = 1893;

/* The record's handle is null once the timer has been deleted; the machinery's handles of timers with a thread never
 * are. Whoever takes the handle out deletes the timer, so that nobody touches a handle that another thread, or the
 * callback itself, has deleted. */
void put(VOS_TIMER *record, timer_t handle) { __atomic_store_n(&record->hTimer, handle, __ATOMIC_RELEASE); }
timer_t takeOut(VOS_TIMER *record) {
    return __atomic_exchange_n(&record->hTimer, static_cast<timer_t>(nullptr), __ATOMIC_ACQ_REL);
}

int32_t deleteTimer(VOS_TIMER *record) {
    const timer_t handle = takeOut(record);
    if (handle == nullptr) {
        errno = EINVAL;
        return VOS_ERROR;
    }
    const int result = timer_delete(handle);
    if (result != 0) put(record, handle); /* it still exists */
    return result;
}

void expired(sigval value) {
    auto *const record = static_cast<VOS_TIMER *>(value.sival_ptr);
    record->pProc(record->ulArg);
    if (record->ulMode == kOneShot) deleteTimer(record);
}

timespec periodOf(const VOS_TIMER *record) {
    return {.tv_sec = record->ulPeriodMs / 1000, .tv_nsec = long{record->ulPeriodMs % 1000} * 1'000'000};
}

int32_t failedAt(int step, int result, vos::Caller me) {
    vosPrintf("\r\n%s %d rc = %d ", me.name, step, result);
    return result;
}

}  // namespace

int32_t vosTimerAdd(VOS_TIMER *pTimer) {
    const vos::Caller me;
    if (pTimer == nullptr || pTimer->pProc == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");

    sigevent notification = {};
    notification.sigev_notify = SIGEV_THREAD;
    notification.sigev_value.sival_ptr = pTimer;
    notification.sigev_notify_function = expired;
    timer_t handle = nullptr;
    if (const int result = timer_create(CLOCK_MONOTONIC, &notification, &handle); result != 0)
        return failedAt(kStepCreate, result, me);
    put(pTimer, handle);

    const timespec period = periodOf(pTimer);
    const itimerspec times = {.it_interval = pTimer->ulMode == kPeriodic ? period : timespec{}, .it_value = period};
    if (const int result = timer_settime(handle, 0, &times, nullptr); result != 0)
        return failedAt(kStepArm, result, me); /* the timer stays, for the caller to delete */
    return VOS_OK;
}

int32_t vosTimerDel(VOS_TIMER *pTimer) {
    const vos::Caller me;
    if (pTimer == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    return deleteTimer(pTimer);
}

int32_t vosInInterrupt(void) { return 0; }
