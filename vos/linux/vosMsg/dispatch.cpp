/* SPDX-License-Identifier: MIT */
/* The messages that the library handles itself. Any process may send any bytes. So before a length from a message is
 * used, it is compared with the number of bytes that came. */
#include "../base/log.h"
#include "../base/wire.h"
#include "message.h"

namespace {

using vos::Arrival;
using vos::Caller;

int32_t handlePacket(Caller me, const Arrival &event) {
    vos::log(VOS_DEBUG_EVENT, me, "%s:receive VOS_MSG_TYPE_PACKET.");
    if (g_vosPktProc == nullptr) return VOS_OK;
    constexpr std::size_t kPadding = 2; /* so the IP header behind an Ethernet header lies on a word boundary */
    const uint32_t length = event.head().ulValue1;
    vos::WordReader in{event.payload()};
    const auto padding = in.bytes(kPadding);
    const auto data = in.bytes(length);
    const auto infoBytes = in.bytes(sizeof(VOS_PKT_INFO));
    const auto extBytes = in.bytes(sizeof(VOS_PKT_EXT));
    if (!padding || !data || !infoBytes || !extBytes)
        return vos::failed(me, VOS_ERROR, "%s:packet of %u bytes does not fit its message of %lu.", length,
                           event.message.size());
    VOS_PKT_INFO info;
    VOS_PKT_EXT ext;
    memcpy(&info, infoBytes->data(), sizeof info);
    memcpy(&ext, extBytes->data(), sizeof ext);
    vos::log(VOS_DEBUG_EVENT, me, "%s:trap packet len %d.", length);
    g_vosPktProc(event.payload().data() + kPadding, static_cast<int32_t>(length), info, ext);
    return VOS_OK;
}

int32_t handleLink(Caller me, const VOS_MSG_HEAD &head) {
    vos::log(VOS_DEBUG_EVENT, me, "%s:receive VOS_MSG_TYPE_LINK value1 %uvalue2 %u value3 %u value4 %u", head.ulValue1,
             head.ulValue2, head.ulValue3, head.ulValue4);
    if (head.ulValue1 == 0 && g_vosApLinktrapProc != nullptr) g_vosApLinktrapProc(head.ulValue2, head.ulValue3);
    if (head.ulValue1 == 1 && g_vosAgLinktrapProc != nullptr) g_vosAgLinktrapProc(head.ulValue2, head.ulValue3);
    if (head.ulValue1 == 2 && g_vosVlanintfLinktrapProc != nullptr)
        g_vosVlanintfLinktrapProc(head.ulValue2, head.ulValue3, head.ulValue4);
    return VOS_OK;
}

int32_t handleMac(Caller me, const Arrival &event, const VOS_MSG_HEAD &head) {
    vos::log(VOS_DEBUG_EVENT, me, "%s:receive VOS_MSG_TYPE_MAC value1 %uvalue2 %u value3 %u value4 %u", head.ulValue1,
             head.ulValue2, head.ulValue3, head.ulValue4);
    if (g_vosMacTrapProc != nullptr)
        g_vosMacTrapProc(head.ulValue1, head.ulValue2, head.ulValue3, event.message.data() + vos::kHeadSize);
    return VOS_OK;
}

int32_t setDebugFlags(Caller me, const VOS_MSG_HEAD &head) {
    vos::trace(me, "%s:receive VOS_MSG_VOS_DEBUG.");
    vosDebugConfig(head.ulValue1);
    return VOS_OK;
}

int32_t setSmdFlags(Caller me, const VOS_MSG_HEAD &head) {
    vos::trace(me, "%s:receive VOS_MSG_SMD_DEBUG.");
    vosMsgDebugSmdSet(head.ulValue1);
    return VOS_OK;
}

int32_t redirectOutput(Caller me, const VOS_MSG_HEAD &head) {
    vos::trace(me, "%s:receive VOS_MSG_STDOUT_REDIRECT.");
    return vosMsgDebugStdRedirect(head.ulValue1, head.ulValue2);
}

}  // namespace

int32_t vos::vosMsgProcessInternel(const Arrival &arrival) {
    const Caller me;
    if (arrival.message.size() < kHeadSize) return failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    const VOS_MSG_HEAD head = arrival.head();
    switch (head.ulType) {
        case VOS_MSG_TYPE_BLDRUN:
            return answerRunningConfig(me, arrival);
        case VOS_MSG_TYPE_PACKET:
            return handlePacket(me, arrival);
        case VOS_MSG_TYPE_LINK:
            return handleLink(me, head);
        case VOS_MSG_TYPE_CCD:
            return answerConfigObject(me, arrival);
        case VOS_MSG_TYPE_CCD_OBJ_INFO_GET:
            return answerObjectInfo(me, arrival);
        case VOS_MSG_VOS_DEBUG:
            return setDebugFlags(me, head);
        case VOS_MSG_SMD_DEBUG:
            return setSmdFlags(me, head);
        case VOS_MSG_STDOUT_REDIRECT:
            return redirectOutput(me, head);
        case VOS_MSG_TAP:
            return switchTap(me, arrival);
        case VOS_MSG_TYPE_MAC:
            return handleMac(me, arrival, head);
        default:
            return failed(me, VOS_ERROR, "%s:invalid msg type %u.", head.ulType);
    }
}
