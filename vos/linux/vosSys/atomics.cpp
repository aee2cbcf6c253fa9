/* SPDX-License-Identifier: MIT */
/* Counters that are changed under a guard, and set and read without it. */
#include "vosSys.h"

namespace {

/* The value is one aligned word that setters and readers touch without the guard: every access is a plain load or
 * store of it, and none is a read-modify-write. */
uint32_t load(const VOS_ATOMIC *counter) { return __atomic_load_n(&counter->ulValue, __ATOMIC_RELAXED); }
void store(VOS_ATOMIC *counter, uint32_t value) { __atomic_store_n(&counter->ulValue, value, __ATOMIC_RELAXED); }

/* Adds, wrapping, and returns the sum. Another thread may have changed the value again by then. */
uint32_t addGuarded(VOS_ATOMIC *counter, uint32_t summand) {
    vosSemTake(counter->pGuard, VOS_WAIT_FOREVER);
    const uint32_t sum = load(counter) + summand;
    store(counter, sum);
    vosSemGive(counter->pGuard);
    return sum;
}

constexpr uint32_t kUp = 1;
constexpr uint32_t kDown = 0U - 1;

}  // namespace

int32_t vosAtomicInit(VOS_ATOMIC *pAtomic, uint32_t ulValue) {
    if (pAtomic == nullptr) return VOS_ERR_PARAM;
    pAtomic->pGuard = vosSemMCreate(1);
    if (pAtomic->pGuard == nullptr) return VOS_ERROR;
    store(pAtomic, ulValue);
    return VOS_OK;
}

void vosAtomicSet(VOS_ATOMIC *pAtomic, uint32_t ulValue) {
    if (pAtomic != nullptr) store(pAtomic, ulValue);
}

uint32_t vosAtomicRead(const VOS_ATOMIC *pAtomic) { return pAtomic != nullptr ? load(pAtomic) : 0; }

void vosAtomicInc(VOS_ATOMIC *pAtomic) { vosAtomicIncAndTest(pAtomic); }

void vosAtomicDec(VOS_ATOMIC *pAtomic) { vosAtomicDecAndTest(pAtomic); }

int32_t vosAtomicIncAndTest(VOS_ATOMIC *pAtomic) { return pAtomic != nullptr && addGuarded(pAtomic, kUp) == 0 ? 1 : 0; }

int32_t vosAtomicDecAndTest(VOS_ATOMIC *pAtomic) {
    return pAtomic != nullptr && addGuarded(pAtomic, kDown) == 0 ? 1 : 0;
}
