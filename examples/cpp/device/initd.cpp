/* SPDX-License-Identifier: MIT */
/* Starts the processes of the OLT, and ends them in the opposite order when it gets SIGTERM. When one of them cannot
 * be started, the other is ended as well.
 *
 *     initd DIRECTORY
 *
 * It has no message channel, so it uses the termination procedure of the C interface.
 */
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <unistd.h>

#include <cstdio>

#include "olt.hpp"

namespace {

pid_t g_self;
volatile sig_atomic_t g_notExecuted;
int g_end[2]; /* a pipe: a byte in it asks the main loop to end */

/* May run inside a signal handler, so it leaves the work to the main loop. It also runs in the child that could not
 * execute a program: that child still shares initd's memory. */
void terminate(int32_t /*reserved*/) {
    if (getpid() != g_self)
        g_notExecuted = 1;
    else if (write(g_end[1], "", 1) < 0)
        _exit(1);
}

/* Without this right process::create() starts a program and fails, and the program's process id is lost. So initd asks
 * before: it makes itself real-time, and takes that back. */
bool mayBeRealTime(int priority) {
    sched_param before{};
    sched_param highest{};
    highest.sched_priority = priority;
    const int policy = sched_getscheduler(0);
    if (policy < 0 || sched_getparam(0, &before) != 0 || sched_setscheduler(0, SCHED_RR, &highest) != 0) return false;
    return sched_setscheduler(0, policy, &before) == 0;
}

/* Under the policy of initd. posix_spawn() runs no signal handler of initd in the new process. */
vos::result<int32_t> createNormal(std::string &path) {
    pid_t pid = -1;
    char *const arguments[] = {path.data(), nullptr};
    if (const int failed = posix_spawn(&pid, path.c_str(), nullptr, nullptr, arguments, environ); failed != 0)
        return vos::error{VOS_ERR_FORK, failed};
    return int32_t{pid};
}

/* A process that is ended with its owner. */
class Child {
  public:
    Child(const std::string &directory, const char *name, int32_t priority, bool realTime) {
        std::string path = directory + "/" + name;
        const auto created = realTime ? vos::process::create(path, priority) : createNormal(path);
        if (created && g_notExecuted == 0)
            pid_ = *created;
        else
            std::fprintf(stderr, "initd: %s was not started\n", path.c_str());
    }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;
    ~Child() {
        if (pid_ > 0) static_cast<void>(vos::process::destroy(pid_));
    }
    explicit operator bool() const { return pid_ > 0; }

  private:
    int32_t pid_ = 0;
};

/* Runs until initd is asked to end. The destructors then end mgmtd first, then oltd. */
bool run(const std::string &directory, bool realTime) {
    const Child oltd{directory, olt::oltd, 20, realTime};
    if (!oltd) return false;
    const Child mgmtd{directory, olt::mgmtd, 10, realTime};
    if (!mgmtd) return false;
    char byte = 0;
    while (read(g_end[0], &byte, 1) != 1) continue;
    return true;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: initd DIRECTORY\n");
        return 2;
    }
    const bool realTime = mayBeRealTime(20);
    if (!realTime) std::fprintf(stderr, "initd: no right to real-time priorities, so the processes run without them\n");
    if (pipe2(g_end, O_CLOEXEC) != 0 || !vos::process::init("initd")) return 1;
    g_self = getpid();
    vosProcessRegTerminateProc(terminate);
    const bool ended = run(argv[1], realTime);
    _exit(ended ? 0 : 1); /* _exit(), because a failed start leaves exit() without its hooks */
}
