/* SPDX-License-Identifier: MIT */
/* Who this unit is: serial number and versions. */
#include <algorithm>
#include <string_view>

#include "../base/log.h"
#include "vosSysConfig.h"

namespace {

constexpr std::size_t kSerialSize = 32;
constexpr std::string_view kDefaultSerial = "123456789";
constexpr std::string_view kBootromVersion = "1.0";
constexpr int32_t kHardwareVersion = 1;

/* As much of a text as fits, with its NUL; nothing where there is no room at all. */
void give(std::string_view text, char *to, int32_t room) {
    if (to == nullptr || room <= 0) return;
    const std::size_t length = std::min(text.size(), static_cast<std::size_t>(room) - 1);
    std::copy_n(text.data(), length, to);
    to[length] = '\0';
}

bool printable(char c) { return c >= 0x20 && c <= 0x7E; }

/* The text of a serial number item, which has no NUL when it fills the item. */
std::string_view serialText(const char *item) { return {item, strnlen(item, kSerialSize)}; }

}  // namespace

/* Any trouble gives the default: a unit without a proper serial number must still be able to show one. */
int32_t vosProdSerialNoRead(char *pBuf, int32_t iBufLen) {
    const vos::Caller me;
    vos::trace(me, "%s:start iBufLen %d.", iBufLen);
    if (vosSysConfigDataGet(BSP_SERIAL_NUMBER, pBuf, static_cast<uint32_t>(iBufLen)) != VOS_OK) {
        give(kDefaultSerial, pBuf, iBufLen);
        return VOS_OK;
    }
    const std::string_view serial = serialText(pBuf);
    if (serial.empty() || !std::ranges::all_of(serial, printable))
        give(kDefaultSerial, pBuf, iBufLen);
    else if (serial.size() == kSerialSize && static_cast<std::size_t>(iBufLen) > kSerialSize)
        pBuf[kSerialSize] = '\0';
    return VOS_OK;
}

int32_t vosBootromVersionGet(char *pBuf, int32_t iBufLen) {
    const vos::Caller me;
    vos::trace(me, "%s:start iBufLen %d.", iBufLen);
    if (pBuf == nullptr) vos::error(me, "%s:parameter error.");
    give(kBootromVersion, pBuf, iBufLen);
    return VOS_OK;
}

int32_t vosHardwareVersionGet(void) {
    const vos::Caller me;
    vos::trace(me, "%s:start.");
    return kHardwareVersion;
}
