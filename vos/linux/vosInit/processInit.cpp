/* SPDX-License-Identifier: MIT */
/* Sets the name of the process. This function calls the message core, to check its buffers. So it cannot be in the
 * vosProcess folder: the message core uses that layer. */
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
