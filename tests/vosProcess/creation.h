/* SPDX-License-Identifier: MIT */
/* Starts real programs and observes them. The started program is the test program itself. With a role in its
 * environment it does what the role says and runs no tests. */
#ifndef TESTS_VOS_PROCESS_CREATION_H
#define TESTS_VOS_PROCESS_CREATION_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/child.h"

namespace vostest {

inline const char *const kRole = "VOS_TEST_ROLE";
inline const char *const kDemo = "/app/bin/demo";

/* The roles: "end" at once; "wait" for a signal; "copy" standard input to standard output, then a word to standard
 * error; "tell" the policy and the arguments on standard output. */
[[gnu::constructor, gnu::used]] static void playRole(int argc, char **argv) {
    const char *const role = getenv(kRole);
    if (role == nullptr) return;
    const std::string what = role;
    while (what == "wait") pause();
    if (what == "tell") {
        std::string told = "policy " + std::to_string(sched_getscheduler(0)) + ":";
        for (int i = 0; i < argc; ++i) told += std::string("[") + argv[i] + "]";
        dprintf(STDOUT_FILENO, "%s", told.c_str());
    }
    if (what == "copy") {
        std::array<char, 64> text;
        const ssize_t count = read(STDIN_FILENO, text.data(), text.size());
        dprintf(STDOUT_FILENO, "out:%.*s", static_cast<int>(count), text.data());
        dprintf(STDERR_FILENO, "err:%s", argv[0]);
    }
    _exit(0);
}

/* Makes this program available under a path. A program that is started from there has the role. */
inline void provide(const std::string &path, const char *role) {
    mkdir("/app/bin", 0755);
    std::array<char, 4096> self{};
    ASSERT_GT(readlink("/proc/self/exe", self.data(), self.size() - 1), 0);
    unlink(path.c_str());
    ASSERT_EQ(symlink(self.data(), path.c_str()), 0);
    setenv(kRole, role, 1);
}

inline std::vector<std::string> argumentsOf(pid_t pid) {
    std::ifstream commandLine("/proc/" + std::to_string(pid) + "/cmdline", std::ios::binary);
    std::vector<std::string> all;
    for (std::string each; std::getline(commandLine, each, '\0');) all.push_back(each);
    return all;
}

/* Also works in a signal handler. */
template <std::size_t Size>
void say(const char (&text)[Size]) {
    if (write(STDOUT_FILENO, text, Size - 1) == -1) abort();
}

/* A started program. It is ended and reaped at the end of the scope. */
class Started {
  public:
    explicit Started(pid_t pid) : pid_(pid) { EXPECT_GT(pid, 0); }
    Started(const Started &) = delete;
    Started &operator=(const Started &) = delete;
    ~Started() {
        if (pid_ <= 0) return;
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }

    /* The argument vector, as the kernel shows it. vosProcessCreate() may return before the kernel shows it, and a long
     * vector that is read at that moment begins with the creator's own arguments. So two readings must be equal. */
    [[nodiscard]] std::vector<std::string> arguments() const {
        const auto own = argumentsOf(getpid());
        std::vector<std::string> all;
        EXPECT_TRUE(eventually([&] {
            all = argumentsOf(pid_);
            return !all.empty() && all != own && all == argumentsOf(pid_);
        }));
        return all;
    }
    [[nodiscard]] int policy() const { return sched_getscheduler(pid_); }
    [[nodiscard]] int priority() const {
        sched_param parameter{};
        EXPECT_EQ(sched_getparam(pid_, &parameter), 0);
        return parameter.sched_priority;
    }

  private:
    pid_t pid_;
};

/* Removes the caller's right to make processes real-time. */
inline void giveUpRealTime() {
    __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
    std::array<__user_cap_data_struct, 2> data{};
    ASSERT_EQ(syscall(SYS_capget, &header, data.data()), 0);
    data[0].effective &= ~(1U << CAP_SYS_NICE);
    ASSERT_EQ(syscall(SYS_capset, &header, data.data()), 0);
    const rlimit none{0, 0};
    ASSERT_EQ(setrlimit(RLIMIT_RTPRIO, &none), 0);
}

struct Pipe {
    Pipe() { EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0); }
    [[nodiscard]] int from() const { return ends[0]; }
    [[nodiscard]] int to() const { return ends[1]; }
    std::array<int, 2> ends{};
};

/* How a child of the caller has ended, as text. */
inline std::string endOf(pid_t pid) {
    int status = 0;
    if (waitpid(pid, &status, 0) != pid) return "no child";
    if (WIFEXITED(status)) return "exit " + std::to_string(WEXITSTATUS(status));
    return "signal " + std::to_string(WTERMSIG(status));
}

/* What a scenario needs and some builds and machines do not have. When it is missing, the test is skipped with the
 * reason. */
struct Need {
    bool (*met)();
    const char *reason;
};

inline bool endsWell(pid_t child) { return child > 0 && endOf(child) == "exit 0"; }

inline const Need kOwnProgram{[] {
                                  const pid_t child = fork();
                                  if (child == 0) {
                                      setenv(kRole, "end", 1);
                                      execl("/proc/self/exe", "probe", nullptr);
                                      _exit(1);
                                  }
                                  return endsWell(child);
                              },
                              "an emulated program cannot execute itself on this machine"};

inline const Need kRealTime{[] {
                                const pid_t child = fork();
                                if (child == 0) {
                                    const sched_param parameter{.sched_priority = 1};
                                    _exit(sched_setscheduler(0, SCHED_RR, &parameter) == 0 ? 0 : 1);
                                }
                                return endsWell(child);
                            },
                            "only the machine's superuser may make processes real-time"};

inline const Need kSharedMemory{[] {
                                    static volatile bool shared = false;
                                    const pid_t child = vfork();
                                    if (child == 0) {
                                        shared = true;
                                        _exit(0);
                                    }
                                    return endsWell(child) && shared;
                                },
                                "an emulator and the thread sanitizer use fork() for vfork(), so no memory is shared"};

inline const Need kOwnCallNumbers{[] {
                                      std::ifstream file("/proc/self/syscall"); /* shows the call that reads it */
                                      long number = -1;
                                      return file >> number && number == SYS_read;
                                  },
                                  "the kernel shows an emulated program's system calls under the host's numbers"};

}  // namespace vostest

#define NEEDS(need) \
    if (!(need).met()) GTEST_SKIP() << (need).reason

#endif
