/* SPDX-License-Identifier: MIT */
/* The id of the calling process, asked for once. */
#ifndef VOS_BASE_PROCESS_ID_H
#define VOS_BASE_PROCESS_ID_H

#include <sys/types.h>

namespace vos {

/* As getpid(), and a call of the kernel the first time only. A child made by any kind of fork gets its own id. One that
 * borrows its parent's memory until it executes a program is told the parent's id: good enough for a name that nobody
 * else uses meanwhile, not for a line that says who speaks. */
pid_t processId();

}  // namespace vos

#endif
