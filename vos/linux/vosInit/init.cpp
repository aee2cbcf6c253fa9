/* SPDX-License-Identifier: MIT */
/* The first call of every process. */
#include "../base/journal.h"
#include "../base/log.h"
#include "vosFile.h"
#include "vosProcess.h"
#include "vosSysConfig.h"

namespace {

/* Completes the stores early in a start, before an application can save by other means. */
void settleStores(vos::Caller me) {
    const auto settle = [me](const char *path) {
        const vos::journal::Target target{me, szVosJournalDir, path};
        if (target.on()) vos::journal::settle(target);
    };
    settle(szVosCfgFileName);
    settle(szVosSyslogFileName);
    if (szAppFileName != nullptr)
        settle(vos::Text<vos::journal::kLongestPath + 1>{}.append(szAppFileName).append(".ver").get());
}

}  // namespace

int32_t vosInit(const char *pProcName) {
    const vos::Caller me;
    vos::trace(me, "%s:start.");
    if (vosLinuxOOMInit() != VOS_OK) vos::error(me, "%s:vosLinuxOOMInit failed.");
    /* The same text for both steps on purpose: readers of the log expect it. */
    if (vosLinuxCoreDumpInit(pProcName) != VOS_OK) vos::error(me, "%s:vosLinuxOOMInit failed.");
    if (vosLinuxNetInit() != VOS_OK) vos::error(me, "%s:vosLinuxNetInit failed.");
    settleStores(me);
    vosSysConfigDataInit(); /* completes the partitions itself */
    return vos::ended(me, VOS_OK);
}
