/* SPDX-License-Identifier: MIT */
/* The items of the data partitions. */
#include <algorithm>
#include <array>
#include <span>

#include "../base/log.h"
#include "partition.h"

namespace {

/* The partition that an item lies in. */
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

/* The text for a length that is too short. It may show the length. */
struct LengthText {
    const char *text;
    consteval LengthText(const char *t) : text(t) {
        if (!vos::logtext::matches<const char *>(t) && !vos::logtext::matches<const char *, int32_t>(t))
            vos::logtext::conversionsAndArgumentsDiffer();
    }
};

enum class Compare { Signed, Unsigned };

struct Item {
    const Record &record;
    int32_t number;
    uint32_t offset;
    uint32_t size;
    Compare length; /* how a caller's length is compared with the size */
    LengthText tooShort;
};

constexpr uint32_t kUserSize = 476;

/* The stacking settings end with a validity word. */
constexpr uint32_t kStackOffset = 568;
constexpr uint32_t kStackData = 20;
constexpr uint32_t kStackSize = kStackData + sizeof(uint32_t);

constexpr Item kItems[] = {
    {kFactory, BSP_SYS_MAC, 0, 6, Compare::Signed, "%s:BSP_SYS_MAC invalid len."},
    {kFactory, BSP_DEFAULT_MAC, 6, 6, Compare::Signed, "%s:BSP_DEFAULT_MAC invalid len."},
    {kFactory, BSP_OEM_NUMBER, 12, 4, Compare::Unsigned, "%s:BSP_OEM_NUMBER invalid len."},
    {kFactory, BSP_SERIAL_NUMBER, 16, 32, Compare::Signed, "%s:BSP_SERIAL_NUMBER invalid len."},
    {kSystem, BSP_FLASH_DATA_VERSION, 0, 4, Compare::Unsigned, "%s:BSP_FLASH_DATA_VERSION invalid len."},
    {kSystem, BSP_IP_ADDRESS, 4, 4, Compare::Unsigned, "%s:BSP_IP_ADDRESS invalid len."},
    {kSystem, BSP_IP_MASK, 8, 4, Compare::Unsigned, "%s:BSP_IP_MASK invalid len."},
    {kSystem, BSP_IP_GATE, 12, 4, Compare::Unsigned, "%s:BSP_IP_GATE invalid len."},
    {kSystem, BSP_BANDRATE, 16, 4, Compare::Unsigned, "%s:BSP_BANDRATE invalid len."},
    {kSystem, BSP_ADMIN_PASSWORD, 20, 36, Compare::Signed, "%s:BSP_ADMIN_PASSWORD invalid len."},
    {kSystem, BSP_PRIVMODE_PWD, 668, 36, Compare::Signed, "%s:BSP_PRIVMODE_PWD invalid len."},
    {kSystem, BSP_PRIVMODE_ENCRYPT, 704, 1, Compare::Unsigned, "%s:BSP_PRIVMODE_ENCRYPT invalid len."},
    {kSystem, BSP_BOOTTIME, 56, 4, Compare::Unsigned, "%s:BSP_BOOTTIME invalid len."},
    {kSystem, BSP_USER, 72, kUserSize, Compare::Unsigned, "%s:BSP_USER invalid len."},
    {kSystem, BSP_SOFTFLAG, 552, 4, Compare::Unsigned, "%s:BSP_SOFTFLAG invalid len."},
    {kFactory, BSP_OEM_INFO, 48, 1024, Compare::Signed, "%s:BSP_OEM_INFO invalid len."},
    {kSystem, BSP_MACLEARNING_MODE, 560, 4, Compare::Unsigned, "%s:BSP_MACLEARNING_MODE invalid len."},
    {kSystem, BSP_MACHASH_MODE, 564, 4, Compare::Unsigned, "%s:BSP_MACHASH_MODE invalid len."},
    {kSystem, BSP_STACK, kStackOffset, kStackSize, Compare::Unsigned, "%s:BSP_STACK invalid len %d ."},
    {kSystem, BSP_ZTP, 664, 4, Compare::Unsigned, "%s:BSP_ZTP invalid len."},
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

/* Stacking settings without the validity word count as not set: in memory they become zeros with the word. */
void repairStack() {
    uint8_t *const settings = &flashData[kStackOffset];
    uint32_t validity = 0;
    memcpy(&validity, &settings[kStackData], sizeof validity);
    if (validity == VOS_STACK_VALID_MAGIC) return;
    validity = VOS_STACK_VALID_MAGIC;
    memset(settings, 0, kStackData);
    memcpy(&settings[kStackData], &validity, sizeof validity);
}

/* Reads the partition of an item from flash. */
int32_t load(vos::Caller me, const Item &item) {
    if (item.record.read(item.record.body) != VOS_OK) return errorExit(me, item.record.readFailed);
    if (item.number == BSP_STACK) repairStack();
    return VOS_OK;
}

/* The flags are a 64-bit word, of which the low 32 bits are the item. Every other item is copied as it is. */
void fetch(const Item &item, void *value) {
    const uint8_t *const field = &item.record.body[item.offset];
    if (item.number == BSP_SOFTFLAG) {
        uint64_t flags = 0;
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
        uint32_t low = 0;
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
        return iItem == BSP_STACK ? VOS_ERROR : errorExit(me); /* a Get of BSP_STACK has no "error exit" line */
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
    /* Callers pass any length with BSP_STACK, so it is not checked: 24 bytes are taken. */
    if (iItem != BSP_STACK && !reaches(*item, ulLen)) {
        sayTooShort(me, *item, ulLen);
        return errorExit(me);
    }
    put(*item, pValue);
    if (item->record.write(item->record.body) != VOS_OK) return errorExit(me, item->record.writeFailed);
    return VOS_OK;
}

int32_t vosBspUserClearAll(void) {
    std::array<uint8_t, kUserSize> erased;
    erased.fill(0xFF);
    return vosSysConfigDataSet(BSP_USER, erased.data(), erased.size());
}
