/* SPDX-License-Identifier: MIT */
/* Ctrl-C, a lost terminal and the request to end. */
#ifndef VOSCTL_INTERRUPTS_H
#define VOSCTL_INTERRUPTS_H

#include <csignal>
#include <string>

#include "fd.h"

namespace vosctl {

/* From now on a signal that ends the tool during a request also removes the path of the request's socket. */
void leaveNoRequesterBehind();

/* As long as this object exists, these signals do not end the tool. They are read from a descriptor, so that a command
 * can wait for them and finish in order. The destructor closes the descriptor and restores the signal mask. */
class Interrupts {
  public:
    Interrupts();
    ~Interrupts();
    Interrupts(const Interrupts &) = delete;
    Interrupts &operator=(const Interrupts &) = delete;

    [[nodiscard]] int fd() const { return fd_.get(); } /* readable when a signal has come */

  private:
    sigset_t earlier_{};
    Fd fd_;
};

/* As long as this object exists, no signal ends or stops the tool, except those that cannot be blocked. So a command
 * finishes what it has begun to write, or restores it. The destructor names a signal that came meanwhile on standard
 * error, and unblocks it. When a Failure ends the scope, the signals stay blocked: the tool ends by that failure, with
 * its message and exit status. */
class HeldSignals {
  public:
    /* The text names the work, such as "the configuration was being saved". */
    explicit HeldSignals(std::string task);
    ~HeldSignals();
    HeldSignals(const HeldSignals &) = delete;
    HeldSignals &operator=(const HeldSignals &) = delete;

  private:
    void sayWhatCame() const;

    std::string task_;
    int exceptions_;
    sigset_t earlier_{};
};

/* Ends the tool by the signal's default action. */
void endBySignal(int number);

}  // namespace vosctl

#endif
