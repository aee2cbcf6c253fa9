/* SPDX-License-Identifier: MIT */
/* How far long work is: one line on standard error, when that is a terminal. */
#ifndef VOSCTL_PROGRESS_H
#define VOSCTL_PROGRESS_H

#include <cstdint>
#include <string>

namespace vosctl {

/* The line comes with the first 32 MiB, changes with each percent, and is removed at the end. Less work shows none. */
class Progress {
  public:
    /* What is done, such as "reading new.img"; the whole work in bytes, 0 when it is not known. */
    Progress(const std::string &what, uint64_t whole);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void reached(uint64_t bytes);

  private:
    std::string what_;
    uint64_t whole_;
    uint64_t shown_ = 0; /* the percent on the terminal; 0: no line yet */
    bool terminal_;
};

}  // namespace vosctl

#endif
