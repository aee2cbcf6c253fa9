/* SPDX-License-Identifier: MIT */
/* The lists' answer to a null list or node. */
#ifndef VOS_LIST_REFUSE_H
#define VOS_LIST_REFUSE_H

#include "../base/log.h"

namespace vos {

/* True, after one error line, when one of the pointers is null. */
template <class... Pointers>
inline bool refuseNull(Caller me, const Pointers *...pointers) {
    if ((... && (pointers != nullptr))) [[likely]]
        return false;
    error(me, "%s:parameter error.");
    return true;
}

}  // namespace vos

#endif
