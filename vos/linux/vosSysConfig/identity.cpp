/* SPDX-License-Identifier: MIT */
/* The identity of this unit: serial number and versions. */
#include <algorithm>
#include <string_view>

#include "../base/log.h"
#include "vosSysConfig.h"

namespace {

constexpr std::size_t kSerialSize = 32;
constexpr std::string_view kDefaultSerial = "123456789";
constexpr std::string_view kBootromVersion = "1.0";
constexpr int32_t kHardwareVersion = 1;

/* Copies as much of a text as fits, and a NUL. Writes nothing when `room` is 0 or negative. */
void copyText(std::string_view text, char *to, int32_t room) {
    if (to == nullptr || room <= 0) return;
    const std::size_t length = std::min(text.size(), static_cast<std::size_t>(room) - 1);
    std::copy_n(text.data(), length, to);
    to[length] = '\0';
}

bool printable(char c) { return c >= 0x20 && c <= 0x7E; }

/* A serial number of all 32 characters has no NUL. */
std::string_view serialText(const char *item) { return {item, strnlen(item, kSerialSize)}; }

}  // namespace

/* Every failure yields the default: management software expects some serial number of every unit. */
int32_t vosProdSerialNoRead(char *pBuf, int32_t iBufLen) {
    const vos::Caller me;
    vos::trace(me, "%s:start iBufLen %d.", iBufLen);
    if (vosSysConfigDataGet(BSP_SERIAL_NUMBER, pBuf, static_cast<uint32_t>(iBufLen)) != VOS_OK) {
        copyText(kDefaultSerial, pBuf, iBufLen);
        return VOS_OK;
    }
    const std::string_view serial = serialText(pBuf);
    if (serial.empty() || !std::ranges::all_of(serial, printable))
        copyText(kDefaultSerial, pBuf, iBufLen);
    else if (serial.size() == kSerialSize && static_cast<std::size_t>(iBufLen) > kSerialSize)
        pBuf[kSerialSize] = '\0';
    return VOS_OK;
}

int32_t vosBootromVersionGet(char *pBuf, int32_t iBufLen) {
    const vos::Caller me;
    vos::trace(me, "%s:start iBufLen %d.", iBufLen);
    if (pBuf == nullptr) vos::error(me, "%s:parameter error.");
    copyText(kBootromVersion, pBuf, iBufLen);
    return VOS_OK;
}

int32_t vosHardwareVersionGet(void) {
    const vos::Caller me;
    vos::trace(me, "%s:start.");
    return kHardwareVersion;
}
