/* SPDX-License-Identifier: MIT */
/**
 * @file vosSys.h
 * Operating system services: sockets, time, shell, synchronisation, namespaces, interval timers.
 */
#ifndef VOS_SYS_H
#define VOS_SYS_H

#include "vosTypes.h"

#endif
