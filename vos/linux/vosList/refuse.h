/* SPDX-License-Identifier: MIT */
/* The check of the lists' arguments for null. */
#ifndef VOS_LIST_REFUSE_H
#define VOS_LIST_REFUSE_H

#include "../base/log.h"

namespace vos {

/* Whether one of the pointers is null; if one is, one error line is logged. */
template <class... Pointers>
inline bool refuseNull(Caller me, const Pointers *...pointers) {
    if ((... && (pointers != nullptr))) [[likely]]
        return false;
    error(me, "%s:parameter error.");
    return true;
}

}  // namespace vos

#endif
