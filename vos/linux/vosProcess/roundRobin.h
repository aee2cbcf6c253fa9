/* SPDX-License-Identifier: MIT */
/* The policy of every process that is started or rescheduled here. */
#ifndef VOS_PROCESS_ROUND_ROBIN_H
#define VOS_PROCESS_ROUND_ROBIN_H

#include <sched.h>

#include <cstdint>

namespace vos {

/* Puts a process under the real-time round-robin policy. False, and errno, when the kernel refuses. */
inline bool setRoundRobin(pid_t pid, int32_t priority) {
    sched_param parameter{};
    parameter.sched_priority = priority;
    return sched_setscheduler(pid, SCHED_RR, &parameter) != -1;
}

}  // namespace vos

#endif
