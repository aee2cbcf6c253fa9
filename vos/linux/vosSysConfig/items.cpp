/* SPDX-License-Identifier: MIT */
/* The items of the data partitions. */
#include <algorithm>
#include <array>
#include <span>

#include "../base/log.h"
#include "partition.h"

namespace {

/* What the items of one partition are read into, and how. */
struct Record {
    uint8_t *body;
    uint32_t size;
    int32_t (*read)(uint8_t *);
    int32_t (*write)(const uint8_t *);
    vos::LogText<> readFailed;
    vos::LogText<> writeFailed;
};

constexpr Record kFactory{flashConfig,
                          sizeof flashConfig,
                          vos::readBootConfigData,
                          vos::writeBootConfigData,
                          "%s:readBootConfigData failed.",
                          "%s:writeBootConfigData failed."};
constexpr Record kSystem{flashData,
                         sizeof flashData,
                         vos::readFlashAppData,
                         vos::writeFlashAppData,
                         "%s:readFlashAppData failed.",
                         "%s:writeFlashAppData failed."};

/* The text for a length below the item's size. It may show the length. */
struct LengthText {
    const char *text;
    consteval LengthText(const char *t) : text(t) {
        if (!vos::logtext::matches<const char *>(t) && !vos::logtext::matches<const char *, int32_t>(t))
            vos::logtext::conversionsAndArgumentsDiffer();
    }
};

enum class Compare { Signed, Unsigned };

struct Item {
    int32_t number;
    const Record &record;
    uint32_t offset;
    uint32_t size;
    Compare length; /* how a caller's length is compared with the size */
    LengthText tooShort;
};

/* The stacking settings carry a validity word of their own. */
constexpr uint32_t kStackData = 20;
constexpr uint32_t kStackSize = kStackData + sizeof(uint32_t);

constexpr Item kItems[] = {
    {BSP_SYS_MAC, kFactory, 0, 6, Compare::Signed, "%s:BSP_SYS_MAC invalid len."},
    {BSP_DEFAULT_MAC, kFactory, 6, 6, Compare::Signed, "%s:BSP_DEFAULT_MAC invalid len."},
    {BSP_OEM_NUMBER, kFactory, 12, 4, Compare::Unsigned, "%s:BSP_OEM_NUMBER invalid len."},
    {BSP_SERIAL_NUMBER, kFactory, 16, 32, Compare::Signed, "%s:BSP_SERIAL_NUMBER invalid len."},
    {BSP_FLASH_DATA_VERSION, kSystem, 0, 4, Compare::Unsigned, "%s:BSP_FLASH_DATA_VERSION invalid len."},
    {BSP_IP_ADDRESS, kSystem, 4, 4, Compare::Unsigned, "%s:BSP_IP_ADDRESS invalid len."},
    {BSP_IP_MASK, kSystem, 8, 4, Compare::Unsigned, "%s:BSP_IP_MASK invalid len."},
    {BSP_IP_GATE, kSystem, 12, 4, Compare::Unsigned, "%s:BSP_IP_GATE invalid len."},
    {BSP_BANDRATE, kSystem, 16, 4, Compare::Unsigned, "%s:BSP_BANDRATE invalid len."},
    {BSP_ADMIN_PASSWORD, kSystem, 20, 36, Compare::Signed, "%s:BSP_ADMIN_PASSWORD invalid len."},
    {BSP_PRIVMODE_PWD, kSystem, 668, 36, Compare::Signed, "%s:BSP_PRIVMODE_PWD invalid len."},
    {BSP_PRIVMODE_ENCRYPT, kSystem, 704, 1, Compare::Unsigned, "%s:BSP_PRIVMODE_ENCRYPT invalid len."},
    {BSP_BOOTTIME, kSystem, 56, 4, Compare::Unsigned, "%s:BSP_BOOTTIME invalid len."},
    {BSP_USER, kSystem, 72, 476, Compare::Unsigned, "%s:BSP_USER invalid len."},
    {BSP_SOFTFLAG, kSystem, 552, 4, Compare::Unsigned, "%s:BSP_SOFTFLAG invalid len."},
    {BSP_OEM_INFO, kFactory, 48, 1024, Compare::Signed, "%s:BSP_OEM_INFO invalid len."},
    {BSP_MACLEARNING_MODE, kSystem, 560, 4, Compare::Unsigned, "%s:BSP_MACLEARNING_MODE invalid len."},
    {BSP_MACHASH_MODE, kSystem, 564, 4, Compare::Unsigned, "%s:BSP_MACHASH_MODE invalid len."},
    {BSP_STACK, kSystem, 568, kStackSize, Compare::Unsigned, "%s:BSP_STACK invalid len %d ."},
    {BSP_ZTP, kSystem, 664, 4, Compare::Unsigned, "%s:BSP_ZTP invalid len."},
};

constexpr bool ordered() {
    for (std::size_t i = 1; i < std::size(kItems); ++i)
        if (kItems[i - 1].number >= kItems[i].number) return false;
    return true;
}
constexpr bool fit(const Item &item) { return item.offset + item.size <= item.record.size; }
static_assert(std::size(kItems) == 20 && ordered() && std::ranges::all_of(kItems, fit));

const Item *find(int32_t number) {
    const auto *const item = std::ranges::find(kItems, number, &Item::number);
    return item != std::end(kItems) ? item : nullptr;
}

bool reaches(const Item &item, uint32_t length) {
    return item.length == Compare::Signed ? static_cast<int32_t>(length) >= static_cast<int32_t>(item.size)
                                          : length >= item.size;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
void sayTooShort(vos::Caller me, const Item &item, uint32_t length) {
    vosDebugPrintf(VOS_DEBUG_ERROR, item.tooShort.text, me.name, static_cast<int32_t>(length));
}
#pragma GCC diagnostic pop

int32_t errorExit(vos::Caller me) { return vos::failed(me, VOS_ERROR, "%s:error exit."); }

int32_t errorExit(vos::Caller me, vos::LogText<> text) {
    vos::error(me, text);
    return errorExit(me);
}

/* Stacking settings without their validity word are none: in memory they become zeros and valid. */
void repairStack() {
    uint8_t *const settings = &flashData[find(BSP_STACK)->offset];
    uint32_t validity;
    memcpy(&validity, &settings[kStackData], sizeof validity);
    if (validity == VOS_STACK_VALID_MAGIC) return;
    validity = VOS_STACK_VALID_MAGIC;
    memset(settings, 0, kStackData);
    memcpy(&settings[kStackData], &validity, sizeof validity);
}

/* Brings an item's record into memory. */
int32_t load(vos::Caller me, const Item &item) {
    if (item.record.read(item.record.body) != VOS_OK) return errorExit(me, item.record.readFailed);
    if (item.number == BSP_STACK) repairStack();
    return VOS_OK;
}

/* The flags are kept as a 64-bit word of which 32 bits are exchanged; every other item is its bytes. */
void fetch(const Item &item, void *value) {
    const uint8_t *const field = &item.record.body[item.offset];
    if (item.number == BSP_SOFTFLAG) {
        uint64_t flags;
        memcpy(&flags, field, sizeof flags);
        const auto low = static_cast<uint32_t>(flags);
        memcpy(value, &low, sizeof low);
    } else {
        memcpy(value, field, item.size);
    }
}

void put(const Item &item, const void *value) {
    uint8_t *const field = &item.record.body[item.offset];
    if (item.number == BSP_SOFTFLAG) {
        uint32_t low;
        memcpy(&low, value, sizeof low);
        const uint64_t flags = low;
        memcpy(field, &flags, sizeof flags);
    } else {
        memcpy(field, value, item.size);
    }
}

}  // namespace

int32_t vosSysConfigDataInit(void) {
    const vos::Caller me;
    vos::trace(me, "%s:start.");
    if (vos::readBootConfigData(flashConfig) != VOS_OK) {
        vos::bootConfigDataInit();
        vosPrintf("\r\nInitialize factory data partition.");
    }
    if (vos::readFlashAppData(flashData) != VOS_OK) {
        vos::flashAppDataInit();
        vosPrintf("\r\nInitialize system data partition.");
    }
    return VOS_OK;
}

int32_t vosSysConfigDataGet(int32_t iItem, void *pValue, uint32_t ulLen) {
    const vos::Caller me;
    vos::trace(me, "%s:start.");
    if (pValue == nullptr) return vos::failed(me, VOS_ERROR, "%s:parameter error.");
    const Item *const item = find(iItem);
    if (item == nullptr || iItem == BSP_PRIVMODE_ENCRYPT) return errorExit(me, "%s:invalid data.");
    if (load(me, *item) != VOS_OK) return VOS_ERROR;
    if (!reaches(*item, ulLen)) {
        sayTooShort(me, *item, ulLen);
        return iItem == BSP_STACK ? VOS_ERROR : errorExit(me); /* here alone the stacking settings are left out */
    }
    fetch(*item, pValue);
    return VOS_OK;
}

int32_t vosSysConfigDataSet(int32_t iItem, const void *pValue, uint32_t ulLen) {
    const vos::Caller me;
    if (pValue == nullptr) return vos::failed(me, VOS_ERROR, "%s:parameter error.");
    const Item *const item = find(iItem);
    if (item == nullptr) return errorExit(me, "%s:invalid data.");
    if (load(me, *item) != VOS_OK) return VOS_ERROR;
    if (!reaches(*item, ulLen)) {
        sayTooShort(me, *item, ulLen);
        return errorExit(me);
    }
    put(*item, pValue);
    if (item->record.write(item->record.body) != VOS_OK) return errorExit(me, item->record.writeFailed);
    return VOS_OK;
}

int32_t vosBspUserClearAll(void) {
    std::array<uint8_t, 476> erased;
    erased.fill(0xFF);
    return vosSysConfigDataSet(BSP_USER, erased.data(), erased.size());
}
