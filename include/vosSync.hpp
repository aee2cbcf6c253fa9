/* SPDX-License-Identifier: MIT */
/**
 * @file vosSync.hpp
 * C++: semaphores, mutexes, wait objects and interval timers for the threads of one process.
 */
#ifndef VOS_SYNC_HPP
#define VOS_SYNC_HPP

#include <pthread.h>
#include <time.h>

#include "vosRegistration.hpp"
#include "vosSys.h"
#include "vosTime.hpp"

namespace vos {
inline namespace api1 {

/**
 * A mutex that the thread which has it may lock again. For std::lock_guard, std::unique_lock and std::scoped_lock.
 *
 * lock() and unlock() end the process with a line when they fail: without memory for the mutex, or when another thread
 * has it. Ask valid() where there may be no memory.
 */
class mutex {
  public:
    mutex() noexcept : handle_(vosLockCreate()) {}
    mutex(const mutex &) = delete;
    mutex &operator=(const mutex &) = delete;
    /** Nobody may have it any more. */
    ~mutex() {
        const int32_t deleted = handle_ != nullptr ? vosLockDelete(handle_) : VOS_OK;
        detail::check(deleted == VOS_OK, "a mutex is destroyed while it is locked");
    }

    [[nodiscard]] bool valid() const noexcept { return handle_ != nullptr; }
    void lock() {
        if (vosLockTake(handle_, VOS_WAIT_FOREVER) != VOS_OK) detail::fail("a mutex cannot be locked");
    }
    [[nodiscard]] bool try_lock() noexcept { return vosLockTake(handle_, VOS_NO_WAIT) == VOS_OK; }
    /** The time is that of the day's clock: when that is set, the wait is shorter or longer. */
    [[nodiscard]] bool try_lock_for(timeout wait) {
        return detail::take_for(wait, [this](uint32_t us) {
                   errno = ETIMEDOUT; /* the call then tells the end of the time from other failures */
                   return vosLockTake(handle_, us);
               }) == VOS_OK;
    }
    void unlock() noexcept {
        if (vosLockGive(handle_) != VOS_OK) detail::fail("a mutex is unlocked by a thread that does not have it");
    }

  private:
    VOS_SEM *handle_;
};

/** A counting semaphore; see vosSemBCreate(). */
class semaphore {
  public:
    /** `initial` takes succeed before the first give. */
    explicit semaphore(uint32_t initial) noexcept : handle_(vosSemBCreate(initial)) {}
    semaphore(const semaphore &) = delete;
    semaphore &operator=(const semaphore &) = delete;
    /** Nobody may wait for it any more. */
    ~semaphore() {
        if (handle_ != nullptr) vosSemDelete(handle_);
    }

    /** Without memory for it every call is VOS_ERR_PARAM. */
    [[nodiscard]] bool valid() const noexcept { return handle_ != nullptr; }
    /** @return VOS_ERR_TIMEOUT, also with vos::no_wait; VOS_ERROR with errno, such as EINTR after a signal handler */
    result<void> take(timeout wait = forever) {
        const int32_t code = detail::take_for(wait, [this](uint32_t us) { return vosSemTake(handle_, us); });
        if (code == VOS_ERROR && wait.is_no_wait() && errno == EAGAIN) return error{VOS_ERR_TIMEOUT};
        return error{code, code == VOS_ERROR ? errno : 0};
    }
    [[nodiscard]] bool try_take() noexcept { return take(no_wait).has_value(); }
    /** Any thread may give. @return VOS_ERROR with errno EOVERFLOW at the largest count */
    result<void> give() noexcept {
        const int32_t code = vosSemGive(handle_);
        return error{code, code == VOS_ERROR ? errno : 0};
    }

  private:
    VOS_SEM *handle_;
};

/** Events that are counted until a thread takes them; see vosWaitCreate(). */
class wait_object {
  public:
    wait_object() noexcept : handle_(vosWaitCreate()) {}
    wait_object(const wait_object &) = delete;
    wait_object &operator=(const wait_object &) = delete;
    /** No thread may wait for it any more. */
    ~wait_object() {
        const int32_t deleted = handle_ != nullptr ? vosWaitDelete(handle_) : VOS_OK;
        detail::check(deleted == VOS_OK, "a wait object is destroyed while a thread waits");
    }

    [[nodiscard]] bool valid() const noexcept { return handle_ != nullptr; }
    /** @return VOS_ERR_TIMEOUT, also with vos::no_wait. Success may, rarely, be a wake-up without an event: see
     *          vosWaitTake(), and look at what the event was about. */
    result<void> take(timeout wait = forever) {
        return detail::done(detail::take_for(wait, [this](uint32_t us) { return vosWaitTake(handle_, us); }));
    }
    result<void> give() noexcept { return detail::done(vosWaitGive(handle_)); }

  private:
    VOS_WAIT *handle_;
};

namespace detail {

/* A record of the C library's timers must stay where it is until its last call has returned, and a call may come after
 * the timer was deleted. So records are never freed. They are used again in the order of their deletion, and not before
 * a second has passed, in which a late call finds no callable. */
class interval_record {
  public:
    using callable = callback<void>;

    /* Null without memory. */
    static interval_record *take() noexcept {
        pthread_mutex_lock(&list_mutex);
        interval_record *found = nullptr;
        if (oldest != nullptr && now() > oldest->freed_ + 1) {
            found = oldest;
            oldest = found->next_;
            if (oldest == nullptr) newest = nullptr;
        }
        pthread_mutex_unlock(&list_mutex);
        return found != nullptr ? found : make();
    }

    int32_t start(callable *f, uint32_t ms, uint32_t mode) noexcept {
        pthread_mutex_lock(&running_);
        f_ = f;
        pthread_mutex_unlock(&running_);
        timer_ = VOS_TIMER{};
        timer_.pProc = fire;
        timer_.ulArg = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(this));
        timer_.ulPeriodMs = ms > 0 ? ms : 1; /* 0 would arm nothing */
        timer_.ulMode = mode;
        return vosTimerAdd(&timer_);
    }
    /* Waits for a call that runs, unless this is that call. */
    void end() noexcept {
        vosTimerDel(&timer_);
        pthread_mutex_lock(&running_);
        f_ = nullptr;
        pthread_mutex_unlock(&running_);
        pthread_mutex_lock(&list_mutex);
        freed_ = now();
        next_ = nullptr;
        (newest != nullptr ? newest->next_ : oldest) = this;
        newest = this;
        pthread_mutex_unlock(&list_mutex);
    }

  private:
    static interval_record *make() noexcept {
        auto *const made = new (std::nothrow) interval_record;
        if (made == nullptr) return nullptr;
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
        pthread_mutex_init(&made->running_, &attributes);
        pthread_mutexattr_destroy(&attributes);
        return made;
    }
    static int32_t fire(uint64_t argument) noexcept {
        auto *const self = reinterpret_cast<interval_record *>(static_cast<uintptr_t>(argument));
        pthread_mutex_lock(&self->running_);
        if (callable *const f = self->f_) {
            const held during{*f};
            (*f)();
        }
        pthread_mutex_unlock(&self->running_);
        return VOS_OK;
    }
    static time_t now() noexcept {
        timespec time{};
        clock_gettime(CLOCK_MONOTONIC, &time);
        return time.tv_sec;
    }

    static inline pthread_mutex_t list_mutex = PTHREAD_MUTEX_INITIALIZER;
    static inline interval_record *oldest = nullptr;
    static inline interval_record *newest = nullptr;

    VOS_TIMER timer_{};
    pthread_mutex_t running_{}; /* recursive: a callable may destroy its own timer */
    callable *f_ = nullptr;
    time_t freed_ = 0;
    interval_record *next_ = nullptr;
};

}  // namespace detail

/**
 * A timer that calls f() on a thread of its own, without a receive loop; see vosTimerAdd(). The calls of one timer
 * never run at the same time. The destructor waits for a call that runs, except in f itself; so do not destroy a timer
 * while you hold a lock that f takes. f must not throw. Any thread may make and destroy timers.
 */
class interval_timer {
  public:
    /** @return VOS_ERR_MEMORY; VOS_ERROR with errno when there is no timer to be had */
    template <class F>
    [[nodiscard]] static result<interval_timer> every(interval period, F f) {
        return make(period, std::move(f), VOS_TIMER_PERIODIC);
    }
    template <class F>
    [[nodiscard]] static result<interval_timer> once(interval delay, F f) {
        return make(delay, std::move(f), VOS_TIMER_ONE_SHOT);
    }

    interval_timer(interval_timer &&other) noexcept
        : record_(std::exchange(other.record_, nullptr)), f_(std::exchange(other.f_, nullptr)) {}
    interval_timer &operator=(interval_timer &&other) noexcept {
        std::swap(record_, other.record_);
        std::swap(f_, other.f_);
        return *this;
    }
    ~interval_timer() {
        if (record_ != nullptr) record_->end();
        if (f_ != nullptr) f_->release();
    }

  private:
    using callable = detail::interval_record::callable;
    interval_timer(detail::interval_record *record, callable *f) noexcept : record_(record), f_(f) {}

    template <class F>
    static result<interval_timer> make(interval time, F f, uint32_t mode) {
        callable *const made = new (std::nothrow) detail::stored<callable, F, void>(std::move(f));
        if (made == nullptr) return error{VOS_ERR_MEMORY};
        interval_timer owner{detail::interval_record::take(), made};
        if (owner.record_ == nullptr) return error{VOS_ERR_MEMORY};
        const int32_t code = owner.record_->start(made, time.ms(), mode);
        if (code != VOS_OK) return detail::with_errno(code);
        return result<interval_timer>{std::move(owner)};
    }

    detail::interval_record *record_;
    callable *f_;
};

}  // namespace api1
}  // namespace vos

#endif
