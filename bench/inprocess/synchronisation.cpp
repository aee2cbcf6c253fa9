/* SPDX-License-Identifier: MIT */
/* Semaphores and locks without a waiting thread, compared with the calls of the C library that they use. */
#include <pthread.h>
#include <semaphore.h>

#include <ctime>

#include "bench.h"
#include "vos.h"

namespace {

constexpr uint32_t kSecond = 1000000;

/* Takes and gives repeatedly. */
template <uint32_t kTimeout>
void takeAndGive(benchmark::State &state, VOS_SEM *sem) {
    WORKS(sem != nullptr);
    WORKS(vosSemTake(sem, kTimeout) == VOS_OK && vosSemGive(sem) == VOS_OK);
    for (auto _ : state) {
        benchmark::DoNotOptimize(vosSemTake(sem, kTimeout));
        benchmark::DoNotOptimize(vosSemGive(sem));
    }
    vosSemDelete(sem);
}

void binary(benchmark::State &state) { takeAndGive<VOS_WAIT_FOREVER>(state, vosSemBCreate(1)); }
void binaryTimed(benchmark::State &state) { takeAndGive<kSecond>(state, vosSemBCreate(1)); }
void mutex(benchmark::State &state) { takeAndGive<VOS_WAIT_FOREVER>(state, vosSemMCreate(1)); }
void mutexTimed(benchmark::State &state) { takeAndGive<kSecond>(state, vosSemMCreate(1)); }

timespec inOneSecond() {
    timespec deadline;
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += 1;
    return deadline;
}

template <bool kTimed>
void bareSemaphore(benchmark::State &state) {
    sem_t sem;
    WORKS(sem_init(&sem, 0, 1) == 0);
    for (auto _ : state) {
        if constexpr (kTimed) {
            const timespec deadline = inOneSecond();
            benchmark::DoNotOptimize(sem_timedwait(&sem, &deadline));
        } else {
            benchmark::DoNotOptimize(sem_wait(&sem));
        }
        benchmark::DoNotOptimize(sem_post(&sem));
    }
    sem_destroy(&sem);
}

template <bool kTimed>
void bareMutex(benchmark::State &state) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_t mutex;
    WORKS(pthread_mutex_init(&mutex, &attributes) == 0);
    for (auto _ : state) {
        if constexpr (kTimed) {
            const timespec deadline = inOneSecond();
            benchmark::DoNotOptimize(pthread_mutex_timedlock(&mutex, &deadline));
        } else {
            benchmark::DoNotOptimize(pthread_mutex_lock(&mutex));
        }
        benchmark::DoNotOptimize(pthread_mutex_unlock(&mutex));
    }
    pthread_mutex_destroy(&mutex);
    pthread_mutexattr_destroy(&attributes);
}

BENCHMARK(binary)->Name("semaphore/binary");
BENCHMARK(bareSemaphore<false>)->Name("semaphore/binary, sem_wait");
BENCHMARK(binaryTimed)->Name("semaphore/binary with a time-out");
BENCHMARK(bareSemaphore<true>)->Name("semaphore/binary with a time-out, sem_timedwait");
BENCHMARK(mutex)->Name("semaphore/mutex");
BENCHMARK(bareMutex<false>)->Name("semaphore/mutex, pthread_mutex_lock");
BENCHMARK(mutexTimed)->Name("semaphore/mutex with a time-out");
BENCHMARK(bareMutex<true>)->Name("semaphore/mutex with a time-out, pthread_mutex_timedlock");

void lock(benchmark::State &state) {
    VOS_SEM *const taken = vosLockCreate();
    WORKS(taken != nullptr && vosLockTake(taken, VOS_WAIT_FOREVER) == VOS_OK && vosLockGive(taken) == VOS_OK);
    for (auto _ : state) {
        benchmark::DoNotOptimize(vosLockTake(taken, VOS_WAIT_FOREVER));
        benchmark::DoNotOptimize(vosLockGive(taken));
    }
    vosLockDelete(taken);
}
BENCHMARK(lock)->Name("lock/vosLockTake");

void wait(benchmark::State &state) {
    VOS_WAIT *const event = vosWaitCreate();
    WORKS(event != nullptr);
    for (auto _ : state) {
        benchmark::DoNotOptimize(vosWaitGive(event));
        benchmark::DoNotOptimize(vosWaitTake(event, VOS_WAIT_FOREVER));
    }
    vosWaitDelete(event);
}
BENCHMARK(wait)->Name("wait/vosWaitGive and Take");

void createAndDelete(benchmark::State &state) {
    for (auto _ : state) WORKS(vosSemDelete(vosSemBCreate(1)) == VOS_OK);
}
BENCHMARK(createAndDelete)->Name("semaphore/create and delete");

}  // namespace
