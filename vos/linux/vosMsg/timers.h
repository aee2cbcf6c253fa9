/* SPDX-License-Identifier: MIT */
/* The timers of a receive loop. */
#ifndef VOS_MSG_TIMERS_H
#define VOS_MSG_TIMERS_H

#include <cstdint>

#include "vosMsg.h"

namespace vos {

struct TimerList {
    VOS_MSG_TIMER **first;
    uint32_t *serial; /* the number of the next timer */
};

extern const TimerList kMainTimers;
extern const TimerList kSecondTimers;

inline constexpr uint32_t kForever = 0xFFFFFFFF;

/* Fires the timers that are due. Returns the milliseconds until the next one is due, or kForever. */
uint32_t runTimers(const TimerList &timers);

}  // namespace vos

#endif
