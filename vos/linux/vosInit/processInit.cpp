/* SPDX-License-Identifier: MIT */
/* The process takes its name. It stands in this room because it checks the message core's buffers first, and the
 * process's identity is built below the message core. */
#include <algorithm>
#include <cstring>

#include "../base/log.h"
#include "vosMsg.h"
#include "vosProcess.h"

int32_t vosProcessInit(const char *pProcName) {
    const vos::Caller me;
    vosMsgCheck();
    if (pProcName == nullptr || strlen(pProcName) >= sizeof szVosProcName) {
        vos::trace(me, "%s:parameters error.");
        return VOS_ERR_PARAM;
    }
    std::copy_n(pProcName, strlen(pProcName) + 1, szVosProcName);
    vosProcessSignalDef();
    return vos::ended(me, VOS_OK);
}
