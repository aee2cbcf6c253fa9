/* SPDX-License-Identifier: MIT */
/* Scenarios: a piece of code runs in a child process, with library state of its own as it is at load. */
#ifndef TESTS_SUPPORT_CHILD_H
#define TESTS_SUPPORT_CHILD_H

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "log.h"

namespace vostest {

using Body = std::function<void()>;
using Milliseconds = std::chrono::milliseconds;

/* How long anything may take. Generous, because it is only reached when something is broken; multiplied by the
 * environment's VOS_TEST_PATIENCE, for emulators. */
Milliseconds deadline();

/* The directory of the small programs that tests start: tests/<area>/<name>.c. */
const std::string &testPrograms();

/* What a finished child has left behind. A child that did not simply exit with 0 fails the test, unless the test asks
 * how it ended: an unexpected crash is not overlooked. */
class Outcome {
  public:
    Outcome() = default;
    Outcome(pid_t pid, int status, std::string output);

    std::string output;  // everything it wrote to standard output
    pid_t pid = 0;

    [[nodiscard]] bool exited(int code) const;
    [[nodiscard]] bool killedBy(int signal) const;
    /* The same as exited(), but the test has not examined the end by it. */
    [[nodiscard]] bool exitedWith(int code) const;
    /* The test has examined the end, whatever it was. */
    void excuse() const;
    /* The log lines, checked for the header of this child; see splitLog(). */
    [[nodiscard]] std::vector<std::string> messages() const;

  private:
    struct End;
    std::shared_ptr<End> end_;
};

/* A running child. One that is still alive when its handle goes out of scope is killed. */
class Process {
  public:
    explicit Process(const Body &body);
    Process(Process &&other) noexcept;
    Process &operator=(Process &&) = delete;
    ~Process();

    [[nodiscard]] pid_t pid() const { return pid_; }
    /* Sends a signal. It is then no failure when the signal ends the child. */
    void send(int signal);
    /* Waits until the child has called ready(). */
    void awaitReady();
    /* Waits until the child's output contains a text, and returns all output so far. */
    std::string awaitOutput(const std::string &text);
    /* Waits for the end of the child and of its output. */
    Outcome finish();

  private:
    bool readMore(std::chrono::steady_clock::time_point until);

    pid_t pid_ = -1;
    int output_ = -1;
    int ready_ = -1;
    int sent_ = 0;
    std::string text_;
};

/* While it lives, this process gets no further descriptor (EMFILE). The run time of a sanitizer needs some when a child
 * ends, so the limit is put back before. */
class NoFreeDescriptor {
  public:
    NoFreeDescriptor();
    NoFreeDescriptor(const NoFreeDescriptor &) = delete;
    NoFreeDescriptor &operator=(const NoFreeDescriptor &) = delete;
    ~NoFreeDescriptor();

  private:
    unsigned long before_ = 0;
};

/* Called in a child: reports to the parent that it is ready for others. */
void ready();

/* Starts a child that runs `body` and then exits with 0. A failed expectation in the child fails the parent's test. */
Process start(const Body &body);

/* Starts a child and waits for its end. */
Outcome run(const Body &body);

/* Waits until a condition holds, asking again and again; false when the deadline has passed. */
bool eventually(const std::function<bool()> &condition);

}  // namespace vostest

#endif
