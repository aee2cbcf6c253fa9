/* SPDX-License-Identifier: MIT */
/* The process takes its name. This is not in the vosProcess folder because the message core uses that layer, and here
 * the message core is called: its buffers are checked first. */
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
