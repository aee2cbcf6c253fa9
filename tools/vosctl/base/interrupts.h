/* SPDX-License-Identifier: MIT */
/* Ctrl-C, a lost terminal and the request to end. */
#ifndef VOSCTL_INTERRUPTS_H
#define VOSCTL_INTERRUPTS_H

#include <csignal>

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

}  // namespace vosctl

#endif
