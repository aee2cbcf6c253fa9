/* SPDX-License-Identifier: MIT */
/* The terminal that is standard input. */
#ifndef VOS_SYS_TERMINAL_H
#define VOS_SYS_TERMINAL_H

#include <termios.h>
#include <unistd.h>

#include "../base/signalsBlocked.h"

namespace vos {

/* The terminal's settings as they were when the object was made. Standard input need not be a terminal: then there are
 * no settings, and none are applied. */
class Terminal {
  public:
    Terminal() : known_(tcgetattr(STDIN_FILENO, &settings_) == 0) {}

    termios &settings() { return settings_; }

    /* Discards what has been typed and not yet read, and applies the settings at once. The kernel answers both calls of
     * a process in the terminal's background with SIGTTOU, which would stop it. While the signal is blocked the calls
     * succeed. */
    void apply() const {
        const SignalsBlocked withoutStop;
        tcflush(STDIN_FILENO, TCIFLUSH);
        if (known_) tcsetattr(STDIN_FILENO, TCSANOW, &settings_);
    }

  private:
    termios settings_ = {};
    bool known_;
};

}  // namespace vos

#endif
