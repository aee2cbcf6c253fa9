/* SPDX-License-Identifier: MIT */
/**
 * @file vosMsgChannel.h
 * Message channels beside the main one: thread channels, the second channel, application descriptors.
 */
#ifndef VOS_MSG_CHANNEL_H
#define VOS_MSG_CHANNEL_H

#include "vosTypes.h"

#endif
