/* SPDX-License-Identifier: MIT */
/* Timers that call a function on a thread that the C library creates for each expiry. */
#include <pthread.h>

#include <cerrno>
#include <csignal>
#include <ctime>

#include "../base/errnoKeeper.h"
#include "../base/log.h"
#include "lock.h"
#include "vosSys.h"

namespace {

constexpr uint32_t kOneShot = 0;
constexpr uint32_t kPeriodic = 1;
/* The numbers by which the printed lines name the step that failed. */
constexpr int kStepCreate = 1873;
constexpr int kStepArm = 1893;

/* One call of a record's function, on the stack of the thread that makes it. */
struct Run {
    VOS_TIMER *record;
    bool restarted; /* the record has a newer timer than the one that made this call */
    Run *next;
};

/* The mutex guards the list and the handles in all records: as long as it is held, a handle that is not null belongs to
 * a timer that exists. */
struct Runs {
    pthread_mutex_t mutex;
    Run *first;
};
constinit Runs g_runs{PTHREAD_MUTEX_INITIALIZER, nullptr};

/* A child made by fork() has no timers and only the thread that called fork(). Another thread may have held the mutex.
 */
void forgetInChild() {
    pthread_mutex_init(&g_runs.mutex, nullptr);
    g_runs.first = nullptr;
}
[[gnu::constructor]] void beReadyForFork() { pthread_atfork(nullptr, nullptr, forgetInChild); }

/* Atomic, because callers may read the handle without the mutex. */
void setHandle(VOS_TIMER *record, timer_t handle) { __atomic_store_n(&record->hTimer, handle, __ATOMIC_RELEASE); }

int32_t deleteTimer(VOS_TIMER *record) {
    if (record->hTimer == nullptr) {
        errno = EINVAL;
        return VOS_ERROR;
    }
    const int result = timer_delete(record->hTimer);
    if (result == 0) setHandle(record, nullptr);
    return result;
}

bool armed(timer_t handle) {
    itimerspec left = {};
    return handle != nullptr && timer_gettime(handle, &left) == 0 &&
           (left.it_value.tv_sec != 0 || left.it_value.tv_nsec != 0);
}

/* A one-shot timer that has fired is not armed any more. So if the record's timer is armed, it was added after the
 * timer that makes this call, and the thread of this call has started too late. */
void begin(Run &run) {
    const vos::Locked locked{&g_runs.mutex};
    run.restarted = run.record->ulMode == kOneShot && armed(run.record->hTimer);
    run.next = g_runs.first;
    g_runs.first = &run;
}

void markRestarted(const VOS_TIMER *record) {
    for (Run *run = g_runs.first; run != nullptr; run = run->next)
        if (run->record == record) run->restarted = true;
}

void finish(Run &run) {
    const vos::Locked locked{&g_runs.mutex};
    for (Run **at = &g_runs.first; *at != nullptr; at = &(*at)->next) {
        if (*at != &run) continue;
        *at = run.next;
        break;
    }
    if (run.record->ulMode == kOneShot && !run.restarted) deleteTimer(run.record);
}

void finishRun(void *run) { finish(*static_cast<Run *>(run)); }

/* A comparison of handles cannot distinguish a restarted timer from the one that fired, because the C library often
 * gives both the same handle. So the calls are listed, and vosTimerAdd() marks those of its record. A function that
 * ends its thread with pthread_exit() is taken off the list as well: its Run goes with the thread's stack. */
void expired(sigval value) {
    Run run = {.record = static_cast<VOS_TIMER *>(value.sival_ptr), .restarted = false, .next = nullptr};
    begin(run);
    pthread_cleanup_push(finishRun, &run);
    run.record->pProc(run.record->ulArg);
    pthread_cleanup_pop(1);
}

timespec periodOf(const VOS_TIMER *record) {
    return {.tv_sec = record->ulPeriodMs / 1000, .tv_nsec = long{record->ulPeriodMs % 1000} * 1'000'000};
}

/* Keeps errno, which callers read after the line. */
int32_t failedAt(int step, int result, vos::Caller me) {
    const vos::ErrnoKeeper keep;
    vosPrintf("\r\n%s %d rc = %d ", me.name, step, result);
    return result;
}

int32_t create(vos::Caller me, VOS_TIMER *record) {
    sigevent notification = {};
    notification.sigev_notify = SIGEV_THREAD;
    notification.sigev_value.sival_ptr = record;
    notification.sigev_notify_function = expired;
    setHandle(record, nullptr); /* so that a record whose timer could not be created has none */
    const int result = timer_create(CLOCK_MONOTONIC, &notification, &record->hTimer);
    return result == 0 ? VOS_OK : failedAt(kStepCreate, result, me);
}

/* A timer that cannot be armed stays: the caller deletes it. */
int32_t arm(vos::Caller me, VOS_TIMER *record) {
    const timespec period = periodOf(record);
    const itimerspec times = {.it_interval = record->ulMode == kPeriodic ? period : timespec{}, .it_value = period};
    const int result = timer_settime(record->hTimer, 0, &times, nullptr);
    return result == 0 ? VOS_OK : failedAt(kStepArm, result, me);
}

}  // namespace

int32_t vosTimerAdd(VOS_TIMER *pTimer) {
    const vos::Caller me;
    if (pTimer == nullptr || pTimer->pProc == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    const vos::Locked locked{&g_runs.mutex};
    markRestarted(pTimer);
    const int32_t created = create(me, pTimer);
    return created == VOS_OK ? arm(me, pTimer) : created;
}

int32_t vosTimerDel(VOS_TIMER *pTimer) {
    const vos::Caller me;
    if (pTimer == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    const vos::Locked locked{&g_runs.mutex};
    return deleteTimer(pTimer);
}

int32_t vosInInterrupt(void) { return 0; }
