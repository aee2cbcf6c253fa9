/* SPDX-License-Identifier: MIT */
/* Binary and mutex semaphores, and locks, which are mutex semaphores under another name. Nothing here logs. */
#include <pthread.h>
#include <semaphore.h>

#include <cerrno>

#include "instant.h"
#include "vosDebug.h"
#include "vosSys.h"

namespace {

enum Kind : uint32_t { Binary = 0, Mutex = 1 };

}  // namespace

struct VOS_SEM {
    uint32_t ulKind;
    sem_t semaphore;       /* of kind Binary */
    pthread_mutex_t mutex; /* of kind Mutex */
};

namespace {

VOS_SEM *allocate(Kind kind) {
    auto *const sem = static_cast<VOS_SEM *>(vosMalloc(sizeof(VOS_SEM)));
    if (sem != nullptr) sem->ulKind = kind;
    return sem;
}

bool usable(const VOS_SEM *sem) { return sem != nullptr && (sem->ulKind == Binary || sem->ulKind == Mutex); }

bool isMutex(const VOS_SEM *sem) { return sem->ulKind == Mutex; }

int32_t resultOf(int outcome) { return outcome == 0 ? VOS_OK : VOS_ERROR; }

/* For both kinds the time-out is read from errno. The wait on a semaphore sets errno. The wait on a mutex returns the
 * error and does not set errno, so the time-out of a mutex is VOS_ERROR unless errno was ETIMEDOUT before. Callers rely
 * on this difference. */
int32_t resultOfTimed(int outcome) {
    if (outcome == 0) return VOS_OK;
    return errno == ETIMEDOUT ? VOS_ERR_TIMEOUT : VOS_ERROR;
}

bool makeRecursive(pthread_mutex_t *mutex) {
    pthread_mutexattr_t attributes;
    if (pthread_mutexattr_init(&attributes) != 0) return false;
    const bool made = pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE) == 0 &&
                      pthread_mutex_init(mutex, &attributes) == 0;
    pthread_mutexattr_destroy(&attributes);
    return made;
}

bool makeMutex(pthread_mutex_t *mutex, bool taken) {
    if (!makeRecursive(mutex)) return false;
    if (!taken || pthread_mutex_lock(mutex) == 0) return true;
    pthread_mutex_destroy(mutex);
    return false;
}

}  // namespace

VOS_SEM *vosSemBCreate(uint32_t ulInitial) {
    VOS_SEM *const sem = allocate(Binary);
    if (sem == nullptr) return nullptr;
    if (sem_init(&sem->semaphore, 0, ulInitial) == 0) return sem;
    vosFree(sem);
    return nullptr;
}

VOS_SEM *vosSemMCreate(uint32_t ulInitial) {
    VOS_SEM *const sem = allocate(Mutex);
    if (sem == nullptr) return nullptr;
    if (makeMutex(&sem->mutex, ulInitial == 0)) return sem;
    vosFree(sem);
    return nullptr;
}

int32_t vosSemDelete(VOS_SEM *pSem) {
    if (!usable(pSem)) return VOS_ERR_PARAM;
    const int outcome = isMutex(pSem) ? pthread_mutex_destroy(&pSem->mutex) : sem_destroy(&pSem->semaphore);
    if (outcome != 0) return VOS_ERROR; /* still in use: its users need the record */
    vosFree(pSem);
    return VOS_OK;
}

int32_t vosSemTake(VOS_SEM *pSem, uint32_t ulTimeoutUs) {
    if (!usable(pSem)) return VOS_ERR_PARAM;
    if (ulTimeoutUs == VOS_WAIT_FOREVER)
        return resultOf(isMutex(pSem) ? pthread_mutex_lock(&pSem->mutex) : sem_wait(&pSem->semaphore));
    if (ulTimeoutUs == VOS_NO_WAIT)
        return resultOf(isMutex(pSem) ? pthread_mutex_trylock(&pSem->mutex) : sem_trywait(&pSem->semaphore));
    timespec deadline;
    if (!vos::deadlineAfter(ulTimeoutUs, deadline)) return VOS_ERROR;
    return resultOfTimed(isMutex(pSem) ? pthread_mutex_timedlock(&pSem->mutex, &deadline)
                                       : sem_timedwait(&pSem->semaphore, &deadline));
}

int32_t vosSemGive(VOS_SEM *pSem) {
    if (!usable(pSem)) return VOS_ERR_PARAM;
    return resultOf(isMutex(pSem) ? pthread_mutex_unlock(&pSem->mutex) : sem_post(&pSem->semaphore));
}

VOS_SEM *vosLockCreate(void) { return vosSemMCreate(1); }

int32_t vosLockTake(VOS_SEM *pLock, uint32_t ulTimeoutUs) { return vosSemTake(pLock, ulTimeoutUs); }

int32_t vosLockGive(VOS_SEM *pLock) { return vosSemGive(pLock); }

int32_t vosLockIrqTake(VOS_SEM *pLock, uint64_t *pFlags, uint32_t ulTimeoutUs) {
    if (pFlags == nullptr) return VOS_ERR_PARAM;
    *pFlags = 0;
    return vosSemTake(pLock, ulTimeoutUs);
}

int32_t vosLockIrqGive(VOS_SEM *pLock, uint64_t /*ulFlags*/) { return vosSemGive(pLock); }

int32_t vosLockDelete(VOS_SEM *pLock) { return vosSemDelete(pLock); }
