/* SPDX-License-Identifier: MIT */
/* Shell command lines and the reboot. */
#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <initializer_list>

#include "../base/errnoKeeper.h"
#include "../base/signalsBlocked.h"
#include "../base/uniqueFd.h"
#include "commandSignals.h"
#include "terminal.h"
#include "vosSys.h"

namespace {

constexpr uint32_t kInteractive = 1;
constexpr uint32_t kPlain = 0;
constexpr uint32_t kRebootNow = 1;
constexpr int kCannotExecute = 127; /* as a shell reports a command that it cannot start */

/* Between fork and exec: only calls that are safe in the child of a process with threads. */
[[noreturn]] void becomeShell(const char *command, uint32_t mode, const vos::SignalsBlocked &blocked) {
    for (const int number : {SIGQUIT, SIGINT, SIGCHLD}) signal(number, SIG_DFL);
    if (mode == kInteractive) {
        vos::Terminal terminal;
        terminal.settings().c_lflag |= ISIG | ECHO;
        terminal.apply();
    }
    blocked.restoreInChild();
    execl("/bin/sh", "sh", "-c", command, static_cast<char *>(nullptr));
    _exit(kCannotExecute);
}

pid_t startShell(const char *command, uint32_t mode) {
    const vos::SignalsBlocked blocked;
    const pid_t child = fork();
    if (child == 0) becomeShell(command, mode, blocked);
    return child;
}

void putBack(const vos::Terminal &terminal) {
    vos::endCommand();
    terminal.apply();
}

/* The work that remains when the waiting thread is cancelled. The command continues. */
void stopWaiting(void *terminal) { putBack(*static_cast<const vos::Terminal *>(terminal)); }

/* The C form of the cleanup: without exceptions a cancelled thread runs no destructors. */
int32_t awaitEnd(pid_t child, int32_t *status, vos::Terminal &terminal) {
    pid_t ended = -1;
    pthread_cleanup_push(stopWaiting, &terminal);
    ended = wait4(child, status, 0, nullptr);
    pthread_cleanup_pop(0);
    return ended == -1 ? VOS_ERROR : VOS_OK;
}

enum class Waiting : bool { No, Yes };

int32_t runShell(const char *command, uint32_t mode, Waiting waiting, int32_t *status) {
    if (command == nullptr) return VOS_ERR_PARAM;
    vos::beginCommand();
    vos::Terminal terminal;
    const pid_t child = startShell(command, mode);
    if (child == -1) {
        const vos::ErrnoKeeper keep; /* callers report why there was no child */
        vos::endCommand();
        return VOS_ERROR;
    }
    const int32_t result = waiting == Waiting::Yes ? awaitEnd(child, status, terminal) : VOS_OK;
    const vos::ErrnoKeeper keep; /* callers report why there was no status */
    putBack(terminal);
    return result;
}

/* The marker by which the next start knows that software asked for the reboot. When it cannot be written, the reboot
 * goes on. It is closed before the reboot begins: "/flash" could not be unmounted while a file in it is open. */
void leaveRebootMarker() { const vos::UniqueFd marker{open("/flash/reboot", O_RDWR | O_CREAT | O_CLOEXEC, 0644)}; }

}  // namespace

int32_t vosSystem(const char *pCommand, uint32_t ulMode) {
    return vosSystem2(pCommand, ulMode, nullptr); /* the command's status is not examined */
}

int32_t vosSystem2(const char *pCommand, uint32_t ulMode, int32_t *pStatus) {
    return runShell(pCommand, ulMode, Waiting::Yes, pStatus);
}

int32_t vosSystemNoWait(const char *pCommand) { return runShell(pCommand, kPlain, Waiting::No, nullptr); }

void vosShell(void) { vosSystem("/bin/sh", kInteractive); }

void vosReboot(uint32_t ulMode) {
    leaveRebootMarker();
    if (ulMode == kRebootNow) vosSystem("reboot > /dev/null 2>&1", kPlain);
}
