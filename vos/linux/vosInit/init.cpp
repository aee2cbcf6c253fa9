/* SPDX-License-Identifier: MIT */
/* The first call of every process. */
#include "../base/log.h"
#include "vosProcess.h"
#include "vosSysConfig.h"

int32_t vosInit(const char *pProcName) {
    const vos::Caller me;
    vos::trace(me, "%s:start.");
    if (vosLinuxOOMInit() != VOS_OK) vos::error(me, "%s:vosLinuxOOMInit failed.");
    /* The same text on purpose: those who read the log know it for both steps. */
    if (vosLinuxCoreDumpInit(pProcName) != VOS_OK) vos::error(me, "%s:vosLinuxOOMInit failed.");
    if (vosLinuxNetInit() != VOS_OK) vos::error(me, "%s:vosLinuxNetInit failed.");
    vosSysConfigDataInit();
    return vos::ended(me, VOS_OK);
}
