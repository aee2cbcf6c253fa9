/* SPDX-License-Identifier: MIT */
/* Blocks all signals in the calling thread while a program is being started.
 *
 * Between fork() or vfork() and exec the child still has the creator's signal handlers. A signal to the process group
 * would run them in the child: after vfork() on the creator's memory, where the termination procedure would count as
 * done and the creator's own SIGTERM would then do nothing; after fork() on a copy, but with the same effects outside
 * the process. A scope with this object around the fork prevents that:
 *
 *   const SignalsBlocked blocked;
 *   const pid_t child = fork();
 *   if (child == 0) {
 *       blocked.restoreInChild();
 *       execl(...);
 *   }
 */
#ifndef VOS_BASE_SIGNALS_BLOCKED_H
#define VOS_BASE_SIGNALS_BLOCKED_H

#include <csignal>

#include "errnoKeeper.h"

namespace vos {

class SignalsBlocked {
  public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    SignalsBlocked(const SignalsBlocked &) = delete;
    SignalsBlocked &operator=(const SignalsBlocked &) = delete;
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

    /* For the child, directly before exec: every caught signal gets its default action, as exec would do it; ignored
     * ones stay ignored. Then the mask is the creator's again. A signal that arrived meanwhile takes effect here. The
     * child's dispositions are its own after vfork(), too; errno is not, and is kept. */
    void restoreInChild() const {
        const ErrnoKeeper keep;
        for (int number = 1; number < NSIG; ++number) resetCaught(number);
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }

  private:
    /* Numbers that the C library keeps for itself cannot be asked for; it never sends them to another process. */
    static void resetCaught(int number) {
        struct sigaction action = {};
        if (sigaction(number, nullptr, &action) != 0) return;
        if (action.sa_handler == SIG_DFL || action.sa_handler == SIG_IGN) return;
        action = {};
        action.sa_handler = SIG_DFL;
        sigaction(number, &action, nullptr);
    }

    sigset_t before_;
};

}  // namespace vos

#endif
