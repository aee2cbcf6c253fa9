/* SPDX-License-Identifier: MIT */
/* A helper process that puts something back when the tool ends, however that happens. */
#ifndef VOSCTL_GUARDIAN_H
#define VOSCTL_GUARDIAN_H

#include <sys/types.h>

#include <functional>

#include "../base/fd.h"

namespace vosctl {

class Guardian {
  public:
    /* The helper waits until the tool calls release() or is gone, killed or not, and then runs the action. */
    explicit Guardian(const std::function<bool()> &putBack);
    ~Guardian();
    Guardian(const Guardian &) = delete;
    Guardian &operator=(const Guardian &) = delete;

    /* Lets the action run now. */
    void release();
    /* Readable once the action has run. */
    [[nodiscard]] int done() const { return done_.get(); }
    /* Releases, waits for the end of the action and tells its result. */
    bool finish();

  private:
    Fd alive_;
    Fd done_;
    pid_t pid_ = -1;
};

}  // namespace vosctl

#endif
