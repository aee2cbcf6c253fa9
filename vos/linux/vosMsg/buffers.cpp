/* SPDX-License-Identifier: MIT */
/* The process-wide message buffers and the check of their alignment. */
#include "../base/assertion.h"
#include "message.h"

alignas(ZEB_LONGBYTES) constinit uint8_t g_vosMsgBufferRecv[VOS_MSG_BUFFER_LEN] = {};
alignas(ZEB_LONGBYTES) constinit uint8_t g_vosMsgBufferSend[VOS_MSG_BUFFER_LEN] = {};

int32_t vosMsgCheck(void) {
    const vos::Caller me;
    vos::check(vos::aligned(g_vosMsgBufferRecv, ZEB_LONGBYTES), "0 == ((uintptr_t)g_vosMsgBufferRecv)%ZEB_LONGBYTES",
               vos::kMsgArea, me);
    vos::check(vos::aligned(g_vosMsgBufferSend, ZEB_LONGBYTES), "0 == ((uintptr_t)g_vosMsgBufferSend)%ZEB_LONGBYTES",
               vos::kMsgArea, me);
    return VOS_OK;
}
