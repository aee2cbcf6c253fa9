/* SPDX-License-Identifier: MIT */
#include "guardian.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>

#include "../base/failure.h"

namespace vosctl {

namespace {

[[noreturn]] void fail(const char *what) {
    throw Failure(std::string(what) + ": " + strerror(errno), "close programs, or raise the limits of this shell");
}

/* A pipe's two ends. */
struct Pipe {
    Pipe() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) == -1) fail("a pipe cannot be made");
        read = Fd{ends[0]};
        write = Fd{ends[1]};
    }
    Fd read;
    Fd write;
};

/* The helper closes all other descriptors: a copy that stays open here would keep a pipe or file open after the tool
 * has ended. */
void closeAllBut(Fd &one, Fd &other) {
    const auto low = static_cast<unsigned>(std::min(one.get(), other.get()));
    const auto high = static_cast<unsigned>(std::max(one.get(), other.get()));
    constexpr unsigned kFirst = STDERR_FILENO + 1;
    if (low > kFirst) close_range(kFirst, low - 1, 0);
    if (high > low + 1) close_range(low + 1, high - 1, 0);
    close_range(high + 1, ~0U, 0);
}

/* Runs in the helper, which ignores the signals of the terminal and waits until the tool has ended or released it. When
 * the helper ends, the kernel closes its end of the second pipe. */
[[noreturn]] void watch(Fd alive, Fd done, const std::function<bool()> &putBack) {
    setsid();
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE}) signal(number, SIG_IGN);
    closeAllBut(alive, done);
    char unused = 0;
    while (read(alive.get(), &unused, 1) == -1 && errno == EINTR) continue;
    _exit(putBack() ? 0 : 1);
}

}  // namespace

Guardian::Guardian(const std::function<bool()> &putBack) {
    Pipe alive;
    Pipe done;
    pid_ = fork();
    if (pid_ == -1) fail("a helper process cannot be started");
    if (pid_ == 0) watch(std::move(alive.read), std::move(done.write), putBack);
    alive_ = std::move(alive.write);
    done_ = std::move(done.read);
}

Guardian::~Guardian() { finish(); }

void Guardian::release() { alive_ = Fd{}; }

bool Guardian::finish() {
    release();
    int status = 0;
    if (pid_ == -1) return true;
    while (waitpid(pid_, &status, 0) == -1 && errno == EINTR) continue;
    pid_ = -1;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace vosctl
