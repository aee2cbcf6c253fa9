/* SPDX-License-Identifier: MIT */
#include "interrupts.h"

#include <sys/signalfd.h>
#include <unistd.h>
#include <vosMsg.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "failure.h"

namespace vosctl {

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
constexpr std::size_t kRequesterNumbers = 127; /* then the library starts with 1 again */

/* The paths that requests of this thread can have. They stand ready, because a signal handler may only unlink. */
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
        /* What is ignored from the start, as behind nohup, stays so. */
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

/* What has come has been obeyed; it must not end the tool a second time. */
Interrupts::~Interrupts() {
    signalfd_siginfo taken;
    while (read(fd_.get(), &taken, sizeof taken) > 0) continue;
    sigprocmask(SIG_SETMASK, &earlier_, nullptr);
}

}  // namespace vosctl
