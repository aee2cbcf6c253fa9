/* SPDX-License-Identifier: MIT */
/* Shell command lines and the reboot. */
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <optional>
#include <utility>

#include "../base/errnoKeeper.h"
#include "../base/uniqueFd.h"
#include "terminal.h"
#include "vosSys.h"

namespace {

constexpr uint32_t kInteractive = 1;
constexpr uint32_t kPlain = 0;
constexpr uint32_t kRebootNow = 1;
constexpr int kCannotExecute = 127; /* as a shell reports a command that it cannot start */

/* One signal's disposition, kept with its flags and mask, so that it comes back as it was. */
class Disposition {
  public:
    Disposition(int number, sighandler_t handler) : number_(number) {
        struct sigaction wanted = {};
        wanted.sa_handler = handler;
        changed_ = sigaction(number, &wanted, &before_) == 0;
    }
    Disposition(const Disposition &) = delete;
    Disposition &operator=(const Disposition &) = delete;
    ~Disposition() {
        if (changed_) sigaction(number_, &before_, nullptr);
    }

  private:
    int number_;
    bool changed_;
    struct sigaction before_ = {};
};

/* While it waits, the caller does not hear the keyboard, and its child's end is not swept away. */
struct WaitingSignals {
    Disposition quit{SIGQUIT, SIG_IGN};
    Disposition interrupt{SIGINT, SIG_IGN};
    Disposition child{SIGCHLD, SIG_DFL};
};

/* Between fork and exec: only calls that are safe in the child of a process with threads. */
[[noreturn]] void becomeShell(const char *command, uint32_t mode) {
    signal(SIGQUIT, SIG_DFL);
    signal(SIGINT, SIG_DFL);
    signal(SIGCHLD, SIG_DFL);
    if (mode == kInteractive) {
        vos::Terminal terminal;
        terminal.settings().c_lflag |= ISIG | ECHO;
        terminal.apply();
    }
    execl("/bin/sh", "sh", "-c", command, static_cast<char *>(nullptr));
    _exit(kCannotExecute);
}

/* The steps that all three calls share; `inParent` is what becomes of the child while the signals are set. */
template <class InParent>
int32_t runShell(const char *command, uint32_t mode, InParent inParent) {
    if (command == nullptr) return VOS_ERR_PARAM;
    std::optional<WaitingSignals> signals{std::in_place};
    const vos::Terminal terminal;
    const pid_t child = fork();
    if (child == 0) becomeShell(command, mode);
    const int32_t result = child == -1 ? VOS_ERROR : inParent(child);
    const vos::ErrnoKeeper keep; /* callers report why there was no child or no status */
    signals.reset();
    if (child != -1) terminal.apply();
    return result;
}

}  // namespace

int32_t vosSystem(const char *pCommand, uint32_t ulMode) {
    return vosSystem2(pCommand, ulMode, nullptr); /* how the command ended is not looked at */
}

int32_t vosSystem2(const char *pCommand, uint32_t ulMode, int32_t *pStatus) {
    return runShell(pCommand, ulMode, [pStatus](pid_t child) -> int32_t {
        return wait4(child, pStatus, 0, nullptr) == -1 ? VOS_ERROR : VOS_OK;
    });
}

int32_t vosSystemNoWait(const char *pCommand) {
    return runShell(pCommand, kPlain, [](pid_t) -> int32_t { return VOS_OK; });
}

void vosShell(void) { vosSystem("/bin/sh", kInteractive); }

void vosReboot(uint32_t ulMode) {
    /* The marker tells the next start that software asked for it; a reboot goes on without one. */
    const vos::UniqueFd marker{open("/flash/reboot", O_RDWR | O_CREAT | O_CLOEXEC, 0644)};
    if (ulMode == kRebootNow) vosSystem("reboot > /dev/null 2>&1", kPlain);
}
