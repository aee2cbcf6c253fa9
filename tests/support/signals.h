/* SPDX-License-Identifier: MIT */
/* Real signals at a chosen moment: while a thread sleeps inside a system call that libvos has made. */
#ifndef TESTS_SUPPORT_SIGNALS_H
#define TESTS_SUPPORT_SIGNALS_H

#include <sys/types.h>

#include <csignal>
#include <functional>
#include <string>

namespace vostest {

/* Installs a handler that only counts. `flags` is SA_RESTART, or 0 for a handler after which calls do not go on. */
void countSignals(int number, int flags);
/* How often such a handler has run in this process. */
int signalsCounted();

/* The moment and the signal. */
struct Interruption {
    std::string call;    // name in the C library, as in FaultPoint
    int occurrence = 1;  // which of these calls: 1 is the first of the action
    int signal = SIGUSR1;
    /* When set, this is done in place of sending `signal` to the sleeping thread. It runs in another process. */
    std::function<void(pid_t sleeper)> instead{};
};

/* Runs `action` in the calling process. Another process waits until the thread that makes the call sleeps in it, and
 * sends the signal to that thread. The test fails when the call was not made or did not sleep. */
void interrupt(const Interruption &how, const std::function<void()> &action);

/* Whether a thread, or a process of one thread, sleeps in the kernel and can be woken by a signal. */
bool sleeps(pid_t thread);

}  // namespace vostest

#endif
