/* SPDX-License-Identifier: MIT */
/* Wait objects: events that are counted until a thread takes them. Nothing here logs. */
#include <pthread.h>

#include <cerrno>
#include <limits>

#include "instant.h"
#include "lock.h"
#include "vosDebug.h"
#include "vosSys.h"

struct VOS_WAIT {
    int32_t iCount;
    pthread_mutex_t mutex;
    pthread_cond_t condition;
};

namespace {

bool takeOne(VOS_WAIT *wait) {
    if (wait->iCount <= 0) return false;
    --wait->iCount;
    return true;
}

void releaseMutex(void *mutex) { pthread_mutex_unlock(static_cast<pthread_mutex_t *>(mutex)); }

/* pthread_cond_wait(), or pthread_cond_timedwait() where there is a deadline. Both are cancellation points, and a
 * thread that is cancelled there holds the mutex again. The C form of the cleanup releases it, because without
 * exceptions no destructor runs in a cancelled thread. */
int waitForSignal(VOS_WAIT *wait, const timespec *deadline) {
    int outcome = 0;
    pthread_cleanup_push(releaseMutex, &wait->mutex);
    outcome = deadline == nullptr ? pthread_cond_wait(&wait->condition, &wait->mutex)
                                  : pthread_cond_timedwait(&wait->condition, &wait->mutex, deadline);
    pthread_cleanup_pop(0);
    return outcome;
}

int32_t waitOnce(VOS_WAIT *wait, uint32_t timeoutUs) {
    if (timeoutUs == VOS_WAIT_FOREVER) return waitForSignal(wait, nullptr) == 0 ? VOS_OK : VOS_ERROR;
    timespec deadline;
    /* VOS_NO_WAIT adds zero: its deadline is the present instant. */
    if (!vos::deadlineAfter(timeoutUs, deadline)) return VOS_ERROR;
    const int outcome = waitForSignal(wait, &deadline);
    if (outcome == ETIMEDOUT) return VOS_ERR_TIMEOUT;
    return outcome == 0 ? VOS_OK : VOS_ERROR;
}

}  // namespace

VOS_WAIT *vosWaitCreate(void) {
    auto *const wait = static_cast<VOS_WAIT *>(vosMalloc(sizeof(VOS_WAIT)));
    if (wait == nullptr) return nullptr;
    wait->iCount = 0;
    if (pthread_mutex_init(&wait->mutex, nullptr) == 0) {
        if (pthread_cond_init(&wait->condition, nullptr) == 0) return wait;
        pthread_mutex_destroy(&wait->mutex);
    }
    vosFree(wait);
    return nullptr;
}

int32_t vosWaitDelete(VOS_WAIT *pWait) {
    if (pWait == nullptr) return VOS_ERR_PARAM;
    if (pthread_mutex_destroy(&pWait->mutex) != 0) return VOS_ERROR;
    if (pthread_cond_destroy(&pWait->condition) != 0) return VOS_ERROR;
    vosFree(pWait);
    return VOS_OK;
}

int32_t vosWaitTake(VOS_WAIT *pWait, uint32_t ulTimeoutUs) {
    if (pWait == nullptr) return VOS_ERR_PARAM;
    const vos::Locked locked{&pWait->mutex};
    if (!locked) return VOS_ERROR;
    if (takeOne(pWait)) return VOS_OK;
    /* A single wait, without a loop: a wake-up without a give ends it, too, and then nothing is taken. */
    const int32_t result = waitOnce(pWait, ulTimeoutUs);
    if (result == VOS_OK) takeOne(pWait);
    return result;
}

int32_t vosWaitGive(VOS_WAIT *pWait) {
    if (pWait == nullptr) return VOS_ERR_PARAM;
    {
        const vos::Locked locked{&pWait->mutex};
        if (!locked) return VOS_ERROR;
        if (pWait->iCount < std::numeric_limits<int32_t>::max()) ++pWait->iCount; /* a full count stays full */
    }
    return pthread_cond_signal(&pWait->condition) == 0 ? VOS_OK : VOS_ERROR;
}
