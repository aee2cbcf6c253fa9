/* SPDX-License-Identifier: MIT */
/* A helper process that restores a state when the tool ends for any reason. */
#ifndef VOSCTL_GUARDIAN_H
#define VOSCTL_GUARDIAN_H

#include <sys/types.h>

#include <functional>

#include "../base/fd.h"

namespace vosctl {

class Guardian {
  public:
    /* The helper waits until the tool calls release(), ends or is killed, and then runs the action. */
    explicit Guardian(const std::function<bool()> &putBack);
    ~Guardian();
    Guardian(const Guardian &) = delete;
    Guardian &operator=(const Guardian &) = delete;

    /* Starts the action now. */
    void release();
    /* Readable once the action has run. */
    [[nodiscard]] int done() const { return done_.get(); }
    /* Calls release(), waits for the end of the action and returns its result. */
    bool finish();

  private:
    Fd alive_;
    Fd done_;
    pid_t pid_ = -1;
};

}  // namespace vosctl

#endif
