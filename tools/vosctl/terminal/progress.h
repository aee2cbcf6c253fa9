/* SPDX-License-Identifier: MIT */
/* Shows the progress of long work: one line on standard error, when that is a terminal. */
#ifndef VOSCTL_PROGRESS_H
#define VOSCTL_PROGRESS_H

#include <cstdint>
#include <string>

namespace vosctl {

/* The line appears after the first 32 MiB, changes with each percent, and is removed at the end. Shorter work has no
 * line. */
class Progress {
  public:
    /* `what` names the work, such as "reading new.img"; `whole` is its size in bytes, 0 when that is not known. */
    Progress(const std::string &what, uint64_t whole);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void reached(uint64_t bytes);

  private:
    std::string what_;
    uint64_t whole_;
    uint64_t shown_ = 0; /* the percentage on the terminal; 0: no line yet */
    bool terminal_;
};

}  // namespace vosctl

#endif
