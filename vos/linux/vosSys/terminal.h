/* SPDX-License-Identifier: MIT */
/* The terminal that is standard input. */
#ifndef VOS_SYS_TERMINAL_H
#define VOS_SYS_TERMINAL_H

#include <termios.h>
#include <unistd.h>

namespace vos {

/* The terminal's settings as they were when the object was made. Standard input need not be a terminal: nothing could
 * be read then, and nothing is applied. */
class Terminal {
  public:
    Terminal() : known_(tcgetattr(STDIN_FILENO, &settings_) == 0) {}

    termios &settings() { return settings_; }

    /* Discards what has been typed so far and makes the settings count from now on. */
    void apply() const {
        tcflush(STDIN_FILENO, TCIFLUSH);
        if (known_) tcsetattr(STDIN_FILENO, TCSANOW, &settings_);
    }

  private:
    termios settings_ = {};
    bool known_;
};

}  // namespace vos

#endif
