/* SPDX-License-Identifier: MIT */
/* Runs a command inside a sandbox and cuts its power: kills everything after a time, or before the Nth change of
 * /flash.
 *
 *     vos-cut [--after TIME] [--at-write N] [--then SCRIPT] -- COMMAND [ARGUMENT]...
 *     vos-cut --parse ...                     only checks the values
 *
 * SCRIPT is for a shell; it runs when the command has ended or was cut, and nothing else is left.
 *
 * What was written before is there afterwards: the page cache is not lost, as it is on a real board. */
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "changes.h"

namespace voscut {

namespace {

constexpr int kCut = 124;
constexpr int kCannot = 125;
using Clock = std::chrono::steady_clock;

struct Settings {
    long afterMs = -1; /* -1: not by time */
    long atWrite = 0;  /* 0: not by changes */
    const char *then = nullptr;
    char **command = nullptr;
};

[[noreturn]] void fail(const std::string &text) {
    fprintf(stderr, "vos-sandbox: %s\n", text.c_str());
    exit(kCannot);
}

long numberOf(const char *text, char **end) {
    errno = 0;
    const long value = strtol(text, end, 10);
    return *text >= '0' && *text <= '9' && errno == 0 ? value : -1;
}

long timeOf(const char *text) {
    char *unit = nullptr;
    const long value = numberOf(text, &unit);
    const bool seconds = value >= 0 && strcmp(unit, "s") == 0;
    if (value < 0 || value > 1000000 || (!seconds && strcmp(unit, "ms") != 0))
        fail(std::string("--cut-after: \"") + text + "\" is no time; examples: 200ms, 3s");
    return seconds ? value * 1000 : value;
}

long countOf(const char *text) {
    char *end = nullptr;
    const long value = numberOf(text, &end);
    if (value < 1 || *end != '\0') fail(std::string("--cut-at-write: \"") + text + "\" is no number from 1");
    return value;
}

Settings read(int argc, char **argv) {
    Settings settings;
    int at = 1;
    for (; at + 1 < argc && strcmp(argv[at], "--") != 0; at += 2) {
        if (strcmp(argv[at], "--after") == 0) settings.afterMs = timeOf(argv[at + 1]);
        if (strcmp(argv[at], "--then") == 0) settings.then = argv[at + 1];
        if (strcmp(argv[at], "--at-write") == 0) settings.atWrite = countOf(argv[at + 1]);
    }
    settings.command = argv + at + 1;
    return settings;
}

/* A descriptor goes from the child, in which the filter is made, to us. */
void give(int through, int fd) {
    char byte = 0;
    iovec data{&byte, 1};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof fd)]{};
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr *const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof fd);
    memcpy(CMSG_DATA(header), &fd, sizeof fd);
    if (sendmsg(through, &message, 0) != 1) _exit(kCannot);
}

int take(int from) {
    char byte = 0;
    iovec data{&byte, 1};
    int fd = -1;
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof fd)]{};
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    if (recvmsg(from, &message, MSG_CMSG_CLOEXEC) != 1) return -1;
    const cmsghdr *const header = CMSG_FIRSTHDR(&message);
    if (header != nullptr) memcpy(&fd, CMSG_DATA(header), sizeof fd);
    return fd;
}

[[noreturn]] void execute(const Settings &settings, int through) {
    if (settings.atWrite > 0) {
        /* sendmsg() is not among the calls that are reported, nobody would answer a report yet */
        const int reports = watchChanges();
        if (reports < 0) {
            fprintf(stderr, "vos-sandbox: --cut-at-write: the kernel does not report system calls: %s\n",
                    strerror(errno));
            _exit(kCannot);
        }
        give(through, reports);
        close(reports);
    }
    close(through);
    execvp(settings.command[0], settings.command);
    const int reason = errno;
    fprintf(stderr, "vos-sandbox: %s: %s\n", settings.command[0], strerror(reason));
    _exit(reason == ENOENT ? 127 : 126);
}

/* Everything but this process and the sandbox's first one. */
void killAll() {
    kill(-1, SIGKILL);
    while (waitpid(-1, nullptr, 0) > 0) continue;
}

int cut(const std::string &when) {
    killAll();
    fprintf(stderr, "vos-sandbox: cut %s\n", when.c_str());
    return kCut;
}

int left(Clock::time_point until) {
    const auto time = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
    return time > 0 ? static_cast<int>(time) : 0;
}

int statusOf(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) continue;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

int run(const Settings &settings) {
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) fail(strerror(errno));
    const pid_t child = fork();
    if (child < 0) fail(strerror(errno));
    if (child == 0) execute(settings, pair[1]);
    close(pair[1]);
    const int reportsFd = settings.atWrite > 0 ? take(pair[0]) : -1;
    const int process = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
    if (process < 0) fail(strerror(errno));
    Reports reports(reportsFd);
    const auto until = Clock::now() + std::chrono::milliseconds(settings.afterMs);
    long changes = 0;
    for (;;) {
        pollfd watched[] = {{process, POLLIN, 0}, {reportsFd, POLLIN, 0}};
        const int ready = poll(watched, 2, settings.afterMs >= 0 ? left(until) : -1);
        if (settings.afterMs >= 0 && left(until) == 0 && (ready == 0 || watched[0].revents == 0))
            return cut("after " + std::to_string(settings.afterMs) + " ms");
        if (ready > 0 && (watched[1].revents & POLLIN) != 0) {
            std::string change;
            if (!reports.next(change)) fail("a change cannot be seen");
            if (!change.empty() && ++changes == settings.atWrite)
                return cut("before change " + std::to_string(changes) + " of /flash: " + change);
            reports.release();
        } else if (ready > 0 && watched[0].revents != 0) {
            const int status = statusOf(child);
            if (settings.atWrite > 0)
                fprintf(stderr, "vos-sandbox: not cut: the command has made %ld changes of /flash\n", changes);
            return status;
        }
    }
}

}  // namespace

}  // namespace voscut

int main(int argc, char **argv) {
    using namespace voscut;
    const bool only = argc > 1 && strcmp(argv[1], "--parse") == 0;
    const Settings settings = only ? read(argc - 1, argv + 1) : read(argc, argv);
    if (only) return 0;
    const int status = run(settings);
    if (settings.then == nullptr) return status;
    killAll();
    return system(settings.then) == 0 ? status : kCannot;
}
