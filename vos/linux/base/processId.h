/* SPDX-License-Identifier: MIT */
/* The id of the calling process, asked for once. */
#ifndef VOS_BASE_PROCESS_ID_H
#define VOS_BASE_PROCESS_ID_H

#include <sys/types.h>

namespace vos {

/* As getpid(), but the kernel is asked only once. A child of fork() or clone() gets its own id. A child of vfork()
 * shares its parent's memory and gets the parent's id until it executes a program. For the name of a socket that is
 * good enough, because the parent's thread sleeps meanwhile. Log lines must show the true id: use getpid() there. */
pid_t processId();

}  // namespace vos

#endif
