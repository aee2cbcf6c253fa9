/* SPDX-License-Identifier: MIT */
/* Copies of messages, as processes send them to a tap. */
#ifndef VOSCTL_COPIES_H
#define VOSCTL_COPIES_H

#include <vosTestCopies.hpp>

#include <string>
#include <string_view>

namespace vosctl {

using vos::test::Copy;
using vos::test::copyOf;

/* Counts the copies that one process has lost. Copies of two threads may overtake each other, so a copy may tell fewer
 * losses than one before it. */
class LossCount {
  public:
    /* How many this copy tells that none before it has told. */
    uint64_t more(const VOS_MSG_TAP_HEAD &head);

  private:
    uint64_t known_ = 0;
};

/* The last part of a path. */
inline std::string fileOf(std::string_view path) { return std::string(path.substr(path.rfind('/') + 1)); }

}  // namespace vosctl

#endif
