/* SPDX-License-Identifier: MIT */
/* A message channel: what one receive loop owns and watches. The main channel, the second channel and every thread
 * channel are values of this record; their loop, their set-up and their timers are the same code. */
#ifndef VOS_MSG_CHANNEL_INTERNAL_H
#define VOS_MSG_CHANNEL_INTERNAL_H

#include <cstdint>

#include "../base/caller.h"
#include "vosMsg.h"
#include "vosMsgChannel.h"

namespace vos {

struct TimerList {
    VOS_MSG_TIMER **first;
    uint32_t *serial; /* the number of the next timer */
};

struct Channel {
    const int32_t *normal;
    const int32_t *high;    /* null: the channel has none */
    const int32_t *netlink; /* null: the kernel's messages are not this channel's */
    uint8_t *buffer;        /* every datagram is received into it */
    uint32_t bufferSize;
    const TimerList *timers; /* null: no timers fire in this loop */
    bool userSockets;        /* whether the loop watches the application's descriptors */
    bool inPlace;            /* the buffer is the caller's own, and a message stays in it with its header */
};

extern const TimerList kMainTimers;
extern const TimerList kSecondTimers;

/* Where an application message goes. `size` is at most the largest payload; without meaning in place. */
struct Delivery {
    void *buffer;
    uint32_t size;
    VOS_MSG_PEER *peer;
};

inline constexpr uint32_t kForever = 0xFFFFFFFF;

/* The receive loop: returns with an application message's length, or a result code. */
int32_t receiveMessage(Caller me, const Channel &channel, const Delivery &delivery, uint32_t timeoutMs);

/* Fires the timers that are due; the milliseconds until the next one is, or kForever. */
uint32_t runTimers(const TimerList &timers);

}  // namespace vos

#endif
