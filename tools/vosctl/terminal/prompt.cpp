/* SPDX-License-Identifier: MIT */
#include "prompt.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "../base/failure.h"
#include "../base/interrupts.h"
#include "payload.h"

namespace vosctl {

namespace {

constexpr uint64_t kLongestValue = 65536; /* longer than every item, also in hexadecimal */

/* As long as this object exists, the terminal does not show what is typed. */
class Hidden {
  public:
    Hidden() {
        tcgetattr(STDIN_FILENO, &shown_);
        termios hidden = shown_;
        hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
    }
    ~Hidden() {
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &shown_);
        fputc('\n', stderr);
    }
    Hidden(const Hidden &) = delete;
    Hidden &operator=(const Hidden &) = delete;

  private:
    termios shown_{};
};

/* Waits for a line or a signal. Returns the signal's number, 0 when there is something to read. */
int awaitLine(const Interrupts &interrupts) {
    pollfd wanted[] = {{STDIN_FILENO, POLLIN, 0}, {interrupts.fd(), POLLIN, 0}};
    while (poll(wanted, 2, -1) < 0 && errno == EINTR) continue;
    signalfd_siginfo info{};
    if ((wanted[1].revents & POLLIN) == 0 || read(interrupts.fd(), &info, sizeof info) != sizeof info) return 0;
    return static_cast<int>(info.ssi_signo);
}

/* One read of a terminal returns a whole line. */
std::string askOnce(const std::string &question) {
    char line[4096];
    ssize_t count = 0;
    int number = 0;
    {
        const Interrupts interrupts;
        const Hidden hidden;
        fprintf(stderr, "%s: ", printable(question).c_str());
        number = awaitLine(interrupts);
        if (number == 0) count = read(STDIN_FILENO, line, sizeof line);
    }
    if (number != 0) endBySignal(number);
    if (count <= 0) throw Failure("no value was given, and nothing was changed", "run it again");
    std::string answer(line, static_cast<std::size_t>(count));
    if (answer.ends_with('\n')) answer.pop_back();
    return answer;
}

std::string ask(const std::string &what) {
    std::string first = askOnce(what);
    if (askOnce(what + " again") != first)
        throw Failure("the two differ, and nothing was changed", "run it again and type the same twice");
    return first;
}

}  // namespace

std::string readValue(const std::string &what) {
    if (isatty(STDIN_FILENO) == 1) return ask(what);
    std::string value = readWhole("-", kLongestValue);
    if (value.empty()) throw Failure("standard input is empty, and nothing was changed", "give the value there");
    if (value.ends_with('\n')) value.pop_back();
    if (value.find('\n') != std::string::npos)
        throw Failure("standard input has more than one line, and nothing was changed", "give the value alone");
    return value;
}

}  // namespace vosctl
