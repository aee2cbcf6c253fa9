/* SPDX-License-Identifier: MIT */
/* A mutex that is held for a scope. */
#ifndef VOS_SYS_LOCK_H
#define VOS_SYS_LOCK_H

#include <pthread.h>

namespace vos {

class Locked {
  public:
    explicit Locked(pthread_mutex_t *mutex) : mutex_(mutex), holds_(pthread_mutex_lock(mutex) == 0) {}
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

}  // namespace vos

#endif
