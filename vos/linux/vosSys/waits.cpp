/* SPDX-License-Identifier: MIT */
/* Wait objects: events that are counted until somebody waits for them. Nothing here logs. */
#include <pthread.h>

#include <cerrno>
#include <limits>

#include "instant.h"
#include "vosDebug.h"
#include "vosSys.h"

struct VOS_WAIT {
    int32_t iCount;
    pthread_mutex_t mutex;
    pthread_cond_t condition;
};

namespace {

/* Holds the record's mutex as long as it lives. */
class Locked {
  public:
    explicit Locked(VOS_WAIT *wait) : mutex_(&wait->mutex), holds_(pthread_mutex_lock(mutex_) == 0) {}
    Locked(const Locked &) = delete;
    Locked &operator=(const Locked &) = delete;
    ~Locked() {
        if (holds_) pthread_mutex_unlock(mutex_);
    }
    explicit operator bool() const { return holds_; }

  private:
    pthread_mutex_t *mutex_;
    bool holds_;
};

bool takeOne(VOS_WAIT *wait) {
    if (wait->iCount <= 0) return false;
    --wait->iCount;
    return true;
}

int32_t waitOnce(VOS_WAIT *wait, uint32_t timeoutUs) {
    if (timeoutUs == VOS_WAIT_FOREVER)
        return pthread_cond_wait(&wait->condition, &wait->mutex) == 0 ? VOS_OK : VOS_ERROR;
    timespec deadline;
    /* A wait that must not block gets the present instant, as zero moves nothing. */
    if (!vos::deadlineAfter(timeoutUs, deadline)) return VOS_ERROR;
    const int outcome = pthread_cond_timedwait(&wait->condition, &wait->mutex, &deadline);
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
    const Locked locked{pWait};
    if (!locked) return VOS_ERROR;
    if (takeOne(pWait)) return VOS_OK;
    /* A single wait, without a loop: who is woken although nothing was given returns as well, and takes nothing. */
    const int32_t result = waitOnce(pWait, ulTimeoutUs);
    if (result == VOS_OK) takeOne(pWait);
    return result;
}

int32_t vosWaitGive(VOS_WAIT *pWait) {
    if (pWait == nullptr) return VOS_ERR_PARAM;
    {
        const Locked locked{pWait};
        if (!locked) return VOS_ERROR;
        if (pWait->iCount < std::numeric_limits<int32_t>::max()) ++pWait->iCount; /* a full count stays full */
    }
    return pthread_cond_signal(&pWait->condition) == 0 ? VOS_OK : VOS_ERROR;
}
