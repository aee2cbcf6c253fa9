/* SPDX-License-Identifier: MIT */
/* Leaves errno as it was, whatever the scope calls. */
#ifndef VOS_BASE_ERRNO_KEEPER_H
#define VOS_BASE_ERRNO_KEEPER_H

#include <cerrno>

namespace vos {

class ErrnoKeeper {
  public:
    ErrnoKeeper() : errno_(errno) {}
    ErrnoKeeper(const ErrnoKeeper &) = delete;
    ErrnoKeeper &operator=(const ErrnoKeeper &) = delete;
    ~ErrnoKeeper() { errno = errno_; }

  private:
    int errno_;
};

}  // namespace vos

#endif
