/* SPDX-License-Identifier: MIT */
/* The application's handlers: one pointer for each kind of event or request. */
#include "../base/log.h"
#include "vosMsg.h"

constinit VOS_PKT_PROC g_vosPktProc = nullptr;
constinit VOS_LINKTRAP_PROC g_vosApLinktrapProc = nullptr;
constinit VOS_LINKTRAP_PROC g_vosAgLinktrapProc = nullptr;
constinit VOS_VLANINTF_LINKTRAP_PROC g_vosVlanintfLinktrapProc = nullptr;
constinit VOS_MAC_TRAP_PROC g_vosMacTrapProc = nullptr;
constinit VOS_BLDRUN_PROC g_vosBldrunProc = nullptr;
constinit VOS_CCD_PROC g_vosCcdProc = nullptr;
constinit VOS_CCD_OBJ_INFO_GET_PROC g_vosCcdObjInfoGetProc = nullptr;

namespace {

template <class Handler>
int32_t put(vos::Caller me, Handler &slot, Handler handler) {
    slot = handler;
    return vos::ended(me, VOS_OK);
}

}  // namespace

int32_t vosMsgRegisterPkt(VOS_PKT_PROC pProc) {
    const vos::Caller me;
    return put(me, g_vosPktProc, pProc);
}

int32_t vosMsgRegisterPortLink(uint32_t ulKind, VOS_LINKTRAP_PROC pProc) {
    const vos::Caller me;
    vos::trace(me, "%s:start.");
    if (ulKind > 1) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    return put(me, ulKind == 0 ? g_vosApLinktrapProc : g_vosAgLinktrapProc, pProc);
}

int32_t vosMsgRegisterVlanintfLink(VOS_VLANINTF_LINKTRAP_PROC pProc) {
    const vos::Caller me;
    return put(me, g_vosVlanintfLinktrapProc, pProc);
}

int32_t vosMsgRegisterMac(VOS_MAC_TRAP_PROC pProc) {
    const vos::Caller me;
    vos::trace(me, "%s:start.");
    return put(me, g_vosMacTrapProc, pProc);
}

int32_t vosMsgRegisterBldrun(VOS_BLDRUN_PROC pProc) {
    const vos::Caller me;
    return put(me, g_vosBldrunProc, pProc);
}

int32_t vosMsgRegisterCcd(VOS_CCD_PROC pProc) {
    const vos::Caller me;
    return put(me, g_vosCcdProc, pProc);
}

int32_t vosMsgRegisterCcdObjInfoGet(VOS_CCD_OBJ_INFO_GET_PROC pProc) {
    const vos::Caller me;
    return put(me, g_vosCcdObjInfoGetProc, pProc);
}
