/* SPDX-License-Identifier: MIT */
#include "copies.h"

#include <algorithm>

namespace vosctl {

uint64_t LossCount::more(const VOS_MSG_TAP_HEAD &head) {
    /* A tap that begins, also in a program that the process has executed, counts from 0. */
    if (head.ucWhat == VOS_MSG_TAP_STARTED && head.ullNumber == 0) known_ = 0;
    const uint64_t more = head.ullLost - std::min(head.ullLost, known_);
    known_ += more;
    return more;
}

}  // namespace vosctl
