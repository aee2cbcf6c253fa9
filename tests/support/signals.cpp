/* SPDX-License-Identifier: MIT */
#include "signals.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <fstream>

#include "child.h"
#include "faults.h"

namespace vostest {

namespace {

std::atomic<int> counted = 0;

void count(int) { ++counted; }

/* Memory that the process under test shares with the sender of the signal. */
struct Meeting {
    std::atomic<pid_t> caller;  // the thread that has entered the call
    std::atomic<bool> over;     // the action has ended
    std::atomic<bool> sent;
    std::atomic<bool> left;  // the sender has ended its work
};

class SharedMeeting {
  public:
    SharedMeeting()
        : meeting_(static_cast<Meeting *>(
              mmap(nullptr, sizeof(Meeting), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
    ~SharedMeeting() { munmap(meeting_, sizeof *meeting_); }
    SharedMeeting(const SharedMeeting &) = delete;
    SharedMeeting &operator=(const SharedMeeting &) = delete;
    Meeting *operator->() const { return meeting_; }

  private:
    Meeting *meeting_;
};

/* The process that sends the signal. It holds no descriptor: a copy of a socket or of a pipe would change what the
 * process under test sees. */
[[noreturn]] void sendWhenAsleep(const Interruption &how, const SharedMeeting &meeting) {
    for (int fd = 0; fd < 4096; ++fd) close(fd);
    const auto asleep = [&] { return meeting->caller != 0 && sleeps(meeting->caller); };
    eventually([&] { return meeting->over || asleep(); });
    if (!meeting->over && asleep()) {
        if (how.instead)
            how.instead(meeting->caller);
        else
            syscall(SYS_tkill, static_cast<pid_t>(meeting->caller), how.signal);
        meeting->sent = true;
    }
    meeting->left = true;
    _exit(0);
}

/* Starts the sender so that it is not a child of this process: the library could wait for it otherwise. */
void startSender(const Interruption &how, const SharedMeeting &meeting) {
    const pid_t parent = fork();
    if (parent == 0) {
        if (fork() == 0) sendWhenAsleep(how, meeting);
        _exit(0);
    }
    while (waitpid(parent, nullptr, 0) == -1 && errno == EINTR) continue;
}

}  // namespace

void countSignals(int number, int flags) {
    struct sigaction action {};
    action.sa_handler = count;
    action.sa_flags = flags;
    EXPECT_EQ(sigaction(number, &action, nullptr), 0);
}

int signalsCounted() { return counted; }

bool sleeps(pid_t thread) {
    std::ifstream file("/proc/" + std::to_string(thread) + "/stat");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const std::size_t name = text.rfind(") ");
    return name != std::string::npos && text.compare(name, 3, ") S") == 0;
}

void interrupt(const Interruption &how, const std::function<void()> &action) {
    const SharedMeeting meeting;
    startSender(how, meeting);
    Faults::watch(how.call, how.occurrence, &meeting->caller);
    action();
    Faults::watch("", 0, nullptr);
    meeting->over = true;
    EXPECT_TRUE(eventually([&] { return meeting->left.load(); }));
    EXPECT_TRUE(meeting->sent) << how.call << "#" << how.occurrence << " never slept";
}

}  // namespace vostest
