/* SPDX-License-Identifier: MIT */
#include "child.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <utility>

namespace vostest {

namespace {

constexpr int kExpectationFailed = 86;  // exit status of a child whose own expectation failed
int readyFd = -1;

using Clock = std::chrono::steady_clock;

/* Standard output belongs to the scenario; a failed expectation writes to standard error. */
class SayOnStandardError : public testing::EmptyTestEventListener {
    void OnTestPartResult(const testing::TestPartResult &result) override {
        if (result.failed())
            fprintf(stderr, "%s:%d: in a child process: %s\n", result.file_name() != nullptr ? result.file_name() : "?",
                    result.line_number(), result.message());
    }
};

[[noreturn]] void runBody(const Body &body) {
    rlimit cores{};
    getrlimit(RLIMIT_CORE, &cores);
    cores.rlim_cur = 0; /* the hard limit stays: an ordinary user could not raise it again */
    setrlimit(RLIMIT_CORE, &cores);
    auto &listeners = testing::UnitTest::GetInstance()->listeners();
    delete listeners.Release(listeners.default_result_printer());
    listeners.Append(new SayOnStandardError);
    body();
    exit(testing::Test::HasFailure() ? kExpectationFailed : 0);
}

}  // namespace

Milliseconds deadline() {
    const char *const patience = getenv("VOS_TEST_PATIENCE");
    return std::chrono::seconds(20) * (patience != nullptr ? atoi(patience) : 1);
}

/* Shared by the copies of an outcome; the last one that is destroyed checks whether the end was examined. */
struct Outcome::End {
    int status = 0;
    bool asked = false;
    std::string output;

    End(int s, std::string o) : status(s), output(std::move(o)) {}
    End(const End &) = delete;
    End &operator=(const End &) = delete;
    ~End() {
        if (status == 0 || asked) return;
        ADD_FAILURE() << "a child " << (WIFSIGNALED(status) ? "was killed by signal " : "exited with status ")
                      << (WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status)) << "; it wrote: " << output;
    }
};

Outcome::Outcome(pid_t p, int status, std::string o)
    : output(std::move(o)), pid(p), end_(std::make_shared<End>(status, output)) {}

void Outcome::excuse() const {
    if (end_ != nullptr) end_->asked = true;
}

bool Outcome::exitedWith(int code) const {
    return end_ != nullptr && WIFEXITED(end_->status) && WEXITSTATUS(end_->status) == code;
}

bool Outcome::exited(int code) const {
    excuse();
    return exitedWith(code);
}

bool Outcome::killedBy(int signal) const {
    excuse();
    return end_ != nullptr && WIFSIGNALED(end_->status) && WTERMSIG(end_->status) == signal;
}

std::vector<std::string> Outcome::messages() const { return logMessages(output, pid); }

Process::Process(const Body &body) {
    std::array<int, 2> output{};
    std::array<int, 2> readiness{};
    if (pipe2(output.data(), O_CLOEXEC) != 0 || pipe2(readiness.data(), O_CLOEXEC) != 0) abort();
    fflush(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        dup2(output[1], STDOUT_FILENO);
        close(output[0]);
        close(output[1]);
        close(readiness[0]);
        readyFd = readiness[1];
        runBody(body);
    }
    close(output[1]);
    close(readiness[1]);
    output_ = output[0];
    ready_ = readiness[0];
}

Process::Process(Process &&other) noexcept
    : pid_(std::exchange(other.pid_, -1)),
      output_(std::exchange(other.output_, -1)),
      ready_(std::exchange(other.ready_, -1)),
      sent_(other.sent_),
      text_(std::move(other.text_)) {}

Process::~Process() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    if (output_ >= 0) close(output_);
    if (ready_ >= 0) close(ready_);
}

void Process::send(int signal) {
    sent_ = signal;
    ASSERT_EQ(kill(pid_, signal), 0);
}

void Process::awaitReady() {
    pollfd waiting{ready_, POLLIN, 0};
    ASSERT_EQ(poll(&waiting, 1, static_cast<int>(deadline().count())), 1) << "the child did not become ready";
    char byte = 0;
    ASSERT_EQ(read(ready_, &byte, 1), 1) << "the child ended before it was ready; it wrote: " << (finish().output);
}

bool Process::readMore(Clock::time_point until) {
    const auto left = std::chrono::duration_cast<Milliseconds>(until - Clock::now()).count();
    pollfd waiting{output_, POLLIN, 0};
    if (left <= 0 || poll(&waiting, 1, static_cast<int>(left)) != 1) return false;
    std::array<char, 4096> piece;
    const ssize_t count = read(output_, piece.data(), piece.size());
    if (count <= 0) return false;
    text_.append(piece.data(), static_cast<std::size_t>(count));
    return true;
}

std::string Process::awaitOutput(const std::string &text) {
    const auto until = Clock::now() + deadline();
    while (text_.find(text) == std::string::npos)
        if (!readMore(until)) {
            ADD_FAILURE() << "the child did not write \"" << text << "\"; it wrote: " << text_;
            break;
        }
    return text_;
}

Outcome Process::finish() {
    const auto until = Clock::now() + deadline();
    while (readMore(until)) continue;
    const bool late = Clock::now() >= until;
    if (late) {
        ADD_FAILURE() << "the child did not end within the deadline; it wrote: " << text_;
        kill(pid_, SIGKILL);
    }
    int status = 0;
    const pid_t pid = std::exchange(pid_, -1);
    waitpid(pid, &status, 0);
    Outcome outcome{pid, status, text_};
    if (outcome.exitedWith(kExpectationFailed))
        ADD_FAILURE() << "an expectation failed in the child; it wrote: " << text_;
    const bool asSent = WIFSIGNALED(status) && WTERMSIG(status) == sent_;
    if (late || asSent || outcome.exitedWith(kExpectationFailed)) outcome.excuse();
    return outcome;
}

void ready() {
    if (write(readyFd, "", 1) != 1) abort();
}

NoFreeDescriptor::NoFreeDescriptor() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    before_ = limit.rlim_cur;
    limit.rlim_cur = 0;
    setrlimit(RLIMIT_NOFILE, &limit);
}

NoFreeDescriptor::~NoFreeDescriptor() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = before_;
    setrlimit(RLIMIT_NOFILE, &limit);
}

Process start(const Body &body) { return Process{body}; }

Outcome run(const Body &body) { return start(body).finish(); }

bool eventually(const std::function<bool()> &condition) {
    const auto until = Clock::now() + deadline();
    while (!condition()) {
        if (Clock::now() >= until) return false;
        std::this_thread::yield();
    }
    return true;
}

}  // namespace vostest
