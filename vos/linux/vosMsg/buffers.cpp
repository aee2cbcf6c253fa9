/* SPDX-License-Identifier: MIT */
/* The process-wide message buffers and the check of their alignment. */
#include "../base/arrays.h"
#include "../base/assertion.h"
#include "message.h"
#include "vosMsgChannel.h"

alignas(vos::kArrayAlignment) constinit uint8_t g_vosMsgBufferRecv[VOS_MSG_BUFFER_LEN] = {};
alignas(vos::kArrayAlignment) constinit uint8_t g_vosMsgBufferSend[VOS_MSG_BUFFER_LEN] = {};
alignas(vos::kArrayAlignment) constinit uint8_t g_vosMsgBufferRecv_thread[VOS_MSG_BUFFER_LEN] = {};
alignas(vos::kArrayAlignment) constinit uint8_t g_vosMsgBufferSend_thread[VOS_MSG_BUFFER_LEN] = {};
alignas(vos::kArrayAlignment) constinit uint8_t g_vosMsgBufferResp_thread[VOS_MSG_BUFFER_LEN] = {};

int32_t vosMsgCheck(void) {
    const vos::Caller me;
    vos::check(vos::aligned(g_vosMsgBufferRecv, ZEB_LONGBYTES), "0 == ((uintptr_t)g_vosMsgBufferRecv)%ZEB_LONGBYTES",
               vos::kMsgArea, me);
    vos::check(vos::aligned(g_vosMsgBufferSend, ZEB_LONGBYTES), "0 == ((uintptr_t)g_vosMsgBufferSend)%ZEB_LONGBYTES",
               vos::kMsgArea, me);
    return VOS_OK;
}

/* The line numbers are fixed: the assertion lines of the two stay the same whatever moves in this file. */
int32_t vosMsgCheck2(void) {
    const vos::Caller me;
    vos::check(vos::aligned(g_vosMsgBufferRecv_thread, ZEB_LONGBYTES),
               "0 == ((uintptr_t)g_vosMsgBufferRecv_thread)%ZEB_LONGBYTES", vos::kMsgArea, me, 3695);
    vos::check(vos::aligned(g_vosMsgBufferSend_thread, ZEB_LONGBYTES),
               "0 == ((uintptr_t)g_vosMsgBufferSend_thread)%ZEB_LONGBYTES", vos::kMsgArea, me, 3696);
    return VOS_OK;
}
