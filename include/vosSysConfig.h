/* SPDX-License-Identifier: MIT */
/**
 * @file vosSysConfig.h
 * Device data: the factory and system partitions and the items stored in them.
 */
#ifndef VOS_SYS_CONFIG_H
#define VOS_SYS_CONFIG_H

#include "vosTypes.h"

#endif
