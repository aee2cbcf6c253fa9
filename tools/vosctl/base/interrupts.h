/* SPDX-License-Identifier: MIT */
/* Ctrl-C, a lost terminal and the request to end. */
#ifndef VOSCTL_INTERRUPTS_H
#define VOSCTL_INTERRUPTS_H

#include <csignal>
#include <string>

#include "fd.h"

namespace vosctl {

/* Lets a signal that ends the tool in the middle of a request take the request's socket path along. */
void leaveNoRequesterBehind();

/* While it lives these signals end nothing: they are to be read from a descriptor, so that a command can be waited for
 * and finished in order. Descriptor and earlier mask are given back at the end. */
class Interrupts {
  public:
    Interrupts();
    ~Interrupts();
    Interrupts(const Interrupts &) = delete;
    Interrupts &operator=(const Interrupts &) = delete;

    [[nodiscard]] int fd() const { return fd_.get(); } /* readable once one has come */

  private:
    sigset_t earlier_{};
    Fd fd_;
};

/* While it lives no signal ends or stops the tool, except those that no program can hold: what a command has begun to
 * write it finishes or puts back. A signal that came meanwhile is named on standard error at the end, and then acts.
 * When a Failure ends the block, the signals stay held: the tool ends by that failure, and its message and status come
 * first. */
class HeldSignals {
  public:
    /* What is being done, as "the configuration was being saved". */
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

/* Ends the tool as a signal does that nobody holds. */
void endBySignal(int number);

}  // namespace vosctl

#endif
