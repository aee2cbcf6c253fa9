/* SPDX-License-Identifier: MIT */
/* The copy of the system log on flash. */
#include "store.h"
#include "vosFile.h"

constinit const char *szVosSyslogFileName = "/flash/syslog";

int32_t vosFileSyslogRead(void *pBuf, uint32_t ulBufLen) {
    const vos::Caller me;
    vos::trace(me, "%s:start ulBufLen %u.", ulBufLen);
    if (pBuf == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    const char *const path = szVosSyslogFileName;
    if (const int32_t found = vos::findFile(me, vos::kSyslogFile, path); found != VOS_OK) return found;
    return vos::readWhole(me, vos::kSyslogFile, path, {static_cast<uint8_t *>(pBuf), ulBufLen});
}

int32_t vosFileSyslogWrite(const void *pBuf, uint32_t ulBufLen) {
    const vos::Caller me;
    vos::trace(me, "%s:start ulBufLen %u.", ulBufLen);
    if (pBuf == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    return vos::replaceWhole(me, vos::kSyslogFile, szVosSyslogFileName, {static_cast<const uint8_t *>(pBuf), ulBufLen});
}
