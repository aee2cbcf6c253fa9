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

/* Standard output is the scenario's; what an expectation has to say goes to standard error. */
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
    cores.rlim_cur = 0; /* the ceiling stays: who gives it up may not be able to raise it again */
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

bool Outcome::exited(int code) const { return WIFEXITED(status) && WEXITSTATUS(status) == code; }

bool Outcome::killedBy(int signal) const { return WIFSIGNALED(status) && WTERMSIG(status) == signal; }

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
      text_(std::move(other.text_)) {}

Process::~Process() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    if (output_ >= 0) close(output_);
    if (ready_ >= 0) close(ready_);
}

void Process::send(int signal) const { ASSERT_EQ(kill(pid_, signal), 0); }

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
    if (Clock::now() >= until) {
        ADD_FAILURE() << "the child did not end within the deadline; it wrote: " << text_;
        kill(pid_, SIGKILL);
    }
    Outcome outcome;
    outcome.pid = pid_;
    outcome.output = text_;
    waitpid(std::exchange(pid_, -1), &outcome.status, 0);
    if (outcome.exited(kExpectationFailed)) ADD_FAILURE() << "an expectation failed in the child; it wrote: " << text_;
    return outcome;
}

void ready() {
    if (write(readyFd, "", 1) != 1) abort();
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
