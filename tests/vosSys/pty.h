/* SPDX-License-Identifier: MIT */
/* A real terminal for a child's standard input. */
#ifndef TESTS_VOS_SYS_PTY_H
#define TESTS_VOS_SYS_PTY_H

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "support/child.h"

namespace vostest {

/* Makes a pseudo-terminal and uses one end as standard input. It does not become the controlling terminal, so its
 * keyboard signals reach no process. */
class StandardInputTerminal {
  public:
    StandardInputTerminal() : keyboard_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        if (keyboard_ < 0 || grantpt(keyboard_) != 0 || unlockpt(keyboard_) != 0) abort();
        const int terminal = open(ptsname(keyboard_), O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (terminal < 0 || dup2(terminal, STDIN_FILENO) != STDIN_FILENO) abort();
        close(terminal);
    }
    StandardInputTerminal(const StandardInputTerminal &) = delete;
    StandardInputTerminal &operator=(const StandardInputTerminal &) = delete;
    ~StandardInputTerminal() { close(keyboard_); }

    void type(const std::string &text) const {
        if (write(keyboard_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) abort();
    }

    /* Types a text that no process reads yet, and waits until the terminal has it. */
    void typeAhead(const std::string &text) const {
        type(text);
        if (!eventually([&] { return typed() == static_cast<int>(text.size()); })) abort();
    }

    /* How many characters wait to be read. */
    static int typed() {
        int count = -1;
        ioctl(STDIN_FILENO, FIONREAD, &count);
        return count;
    }

    static termios settings() {
        termios now{};
        if (tcgetattr(STDIN_FILENO, &now) != 0) abort();
        return now;
    }
    static void set(const termios &settings) {
        if (tcsetattr(STDIN_FILENO, TCSANOW, &settings) != 0) abort();
    }

  private:
    int keyboard_;
};

inline bool sameSettings(const termios &a, const termios &b) {
    return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag && a.c_lflag == b.c_lflag &&
           std::equal(std::begin(a.c_cc), std::end(a.c_cc), std::begin(b.c_cc));
}

}  // namespace vostest

#endif
