/* SPDX-License-Identifier: MIT */
/* The system calls that change what is below /flash, seen before they are made. */
#ifndef TESTKIT_CUT_CHANGES_H
#define TESTKIT_CUT_CHANGES_H

#include <sys/types.h>

#include <string>

namespace voscut {

/* Lets the kernel report the changing calls of the calling thread, and of all that it starts, to the returned
 * descriptor. -1 with errno when it cannot. */
int watchChanges();

/* Waits for one reported call, and says what it would change below /flash, as "write /flash/a"; empty when it changes
 * nothing there. The caller's thread does not go on before release(). False when nothing more can be reported. */
class Reports {
  public:
    explicit Reports(int fd);
    bool next(std::string &change);
    void release();

  private:
    int fd_;
    unsigned long long id_ = 0;
};

}  // namespace voscut

#endif
