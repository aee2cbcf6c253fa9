/* SPDX-License-Identifier: MIT */
/* Dispositions belong to the whole process, and several threads may run a command at once. So the commands are counted:
 * the first one keeps the dispositions, the last one restores them. */
#include "commandSignals.h"

#include <pthread.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdint>

#include "../base/signalsBlocked.h"
#include "lock.h"

namespace {

/* A disposition with its flags and its mask. */
struct Disposition {
    struct sigaction action;
    bool known;
};

struct Commands {
    pthread_mutex_t mutex;
    uint32_t running;
    Disposition quit, interrupt, child; /* as they were before the first command */
};
constinit Commands g_commands{PTHREAD_MUTEX_INITIALIZER, 0, {}, {}, {}};

/* A child made by fork() has only the thread that called fork(). The commands of other threads do not run in the child,
 * and one of these threads may have held the mutex. */
void forgetInChild() {
    pthread_mutex_init(&g_commands.mutex, nullptr);
    g_commands.running = 0;
}
[[gnu::constructor]] void beReadyForFork() { pthread_atfork(nullptr, nullptr, forgetInChild); }

/* Holds the mutex. No signal handler interrupts the holder, because a handler that runs a command would wait for ever;
 * and the holder is not cancelled, because waitpid() is a cancellation point. */
class Held {
  public:
    Held() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState_); }
    Held(const Held &) = delete;
    Held &operator=(const Held &) = delete;
    ~Held() { pthread_setcancelstate(cancelState_, nullptr); }

  private:
    int cancelState_ = PTHREAD_CANCEL_ENABLE;
    vos::SignalsBlocked blocked_;
    vos::Locked locked_{&g_commands.mutex};
};

void change(int number, sighandler_t handler, bool keep, Disposition &kept) {
    struct sigaction wanted = {};
    wanted.sa_handler = handler;
    struct sigaction before = {};
    const bool changed = sigaction(number, &wanted, &before) == 0;
    if (keep) kept = {before, changed};
}

void restore(int number, const Disposition &kept) {
    if (kept.known) sigaction(number, &kept.action, nullptr);
}

/* Whether the kernel reaps children by itself under this disposition of SIGCHLD. */
bool reapsByItself(const Disposition &child) {
    return child.known && (child.action.sa_handler == SIG_IGN || (child.action.sa_flags & SA_NOCLDWAIT) != 0);
}

/* While SIGCHLD had its default action, every child that ended became a zombie, and ignoring SIGCHLD again does not
 * remove it. No caller loses a status: a process that ignores SIGCHLD gets none. */
void reapZombies() {
    while (waitpid(-1, nullptr, WNOHANG) > 0) continue;
}

}  // namespace

void vos::beginCommand() {
    const Held held;
    const bool first = g_commands.running++ == 0;
    change(SIGQUIT, SIG_IGN, first, g_commands.quit);
    change(SIGINT, SIG_IGN, first, g_commands.interrupt);
    change(SIGCHLD, SIG_DFL, first, g_commands.child);
}

void vos::endCommand() {
    const Held held;
    if (g_commands.running > 1) {
        --g_commands.running;
        return;
    }
    g_commands.running = 0;
    restore(SIGQUIT, g_commands.quit);
    restore(SIGINT, g_commands.interrupt);
    restore(SIGCHLD, g_commands.child);
    /* Still under the mutex: the child of a command that begins now must not be taken. */
    if (reapsByItself(g_commands.child)) reapZombies();
}
