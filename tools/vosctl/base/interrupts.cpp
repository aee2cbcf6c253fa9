/* SPDX-License-Identifier: MIT */
#include "interrupts.h"

#include <sys/signalfd.h>
#include <unistd.h>
#include <vosMsg.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <string>
#include <utility>

#include "failure.h"

namespace vosctl {

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
constexpr std::size_t kRequesterNumbers = 127; /* after the last one the library starts with 1 again */

/* All paths that requests of this thread can have. They are made in advance, because a signal handler can unlink a path
 * but not format it. */
std::array<std::array<char, 64>, kRequesterNumbers> requesters;

void endBy(int number) {
    for (const auto &path : requesters) unlink(path.data());
    signal(number, SIG_DFL);
    raise(number);
}

sigset_t signalSet() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : kSignals) sigaddset(&set, number);
    return set;
}

/* All signals except those that a fault of the program raises. While such a signal is blocked the kernel ends the
 * program at once, and a handler cannot report it. */
sigset_t heldSet() {
    sigset_t set;
    sigfillset(&set);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS}) sigdelset(&set, fault);
    return set;
}

bool isIgnored(int number) {
    struct sigaction action {};
    return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

/* The write that caused one of these signals has failed, and the command has seen that failure. */
void dropWriteSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    sigaddset(&set, SIGXFSZ);
    constexpr timespec kAtOnce{};
    while (sigtimedwait(&set, nullptr, &kAtOnce) > 0) continue;
}

}  // namespace

void leaveNoRequesterBehind() {
    std::array<char, 64> path{};
    vosMsgGetLocalFile(path.data(), static_cast<int32_t>(path.size()));
    const std::string any{path.data()};
    const std::string begin = any.substr(0, any.rfind('v') + 1); /* what follows is the number */
    for (std::size_t index = 0; index < requesters.size(); ++index)
        snprintf(requesters[index].data(), requesters[index].size(), "%s%zu", begin.c_str(), index + 1);
    struct sigaction action {};
    action.sa_handler = endBy;
    for (const int number : kSignals) {
        struct sigaction earlier {};
        /* A signal that was ignored at the start, as under nohup, stays ignored. */
        if (sigaction(number, nullptr, &earlier) == 0 && earlier.sa_handler != SIG_IGN)
            sigaction(number, &action, nullptr);
    }
}

Interrupts::Interrupts() {
    const sigset_t set = signalSet();
    sigprocmask(SIG_BLOCK, &set, &earlier_);
    fd_ = Fd{signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK)};
    if (!fd_) {
        const std::string reason = strerror(errno);
        sigprocmask(SIG_SETMASK, &earlier_, nullptr);
        throw Failure("signals cannot be waited for: " + reason, "close programs, or raise the limit of open files");
    }
}

/* The command has handled the signals that came. They are removed, so that they do not end the tool afterwards. */
Interrupts::~Interrupts() {
    signalfd_siginfo taken;
    while (read(fd_.get(), &taken, sizeof taken) > 0) continue;
    sigprocmask(SIG_SETMASK, &earlier_, nullptr);
}

HeldSignals::HeldSignals(std::string task) : task_(std::move(task)), exceptions_(std::uncaught_exceptions()) {
    const sigset_t set = heldSet();
    sigprocmask(SIG_BLOCK, &set, &earlier_);
}

HeldSignals::~HeldSignals() {
    if (std::uncaught_exceptions() > exceptions_) return;
    sayWhatCame();
    if (sigismember(&earlier_, SIGPIPE) == 0) dropWriteSignals();
    sigprocmask(SIG_SETMASK, &earlier_, nullptr);
}

void HeldSignals::sayWhatCame() const {
    sigset_t pending;
    sigpending(&pending);
    for (const int number : kSignals) {
        if (sigismember(&pending, number) == 0 || sigismember(&earlier_, number) == 1 || isIgnored(number)) continue;
        fprintf(stderr, "vosctl: SIG%s came while %s; this was completed first\n", sigabbrev_np(number), task_.c_str());
        return;
    }
}

void endBySignal(int number) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, number);
    raise(number);
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
}

}  // namespace vosctl
