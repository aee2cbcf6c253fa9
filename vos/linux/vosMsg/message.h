/* SPDX-License-Identifier: MIT */
/* What the files of the message core share. */
#ifndef VOS_MSG_MESSAGE_H
#define VOS_MSG_MESSAGE_H

#include <cstddef>
#include <cstdint>

#include "vosMsg.h"

namespace vos {

/* The source shown in the message core's assertion lines. */
inline constexpr const char *kMsgArea = "vos/linux/vosMsg";

/* Processes of different builds exchange these bytes. */
static_assert(sizeof(VOS_MSG_HEAD) == 32 && alignof(VOS_MSG_HEAD) == 4);
static_assert(offsetof(VOS_MSG_HEAD, ulType) == 0 && offsetof(VOS_MSG_HEAD, ulNoReturn) == 4);
static_assert(offsetof(VOS_MSG_HEAD, ulRetCode) == 8 && offsetof(VOS_MSG_HEAD, ulValue1) == 12);
static_assert(offsetof(VOS_MSG_HEAD, ulValue2) == 16 && offsetof(VOS_MSG_HEAD, ulValue3) == 20);
static_assert(offsetof(VOS_MSG_HEAD, ulValue4) == 24 && offsetof(VOS_MSG_HEAD, ulBufLen) == 28);
static_assert(sizeof(long) == ZEB_LONGBYTES);
static_assert(VOS_MSG_BUFFER_LEN % ZEB_LONGBYTES == 0);

}  // namespace vos

#endif
