/* SPDX-License-Identifier: MIT */
/* OEM records of a file package, and the OEM information block they go into. */
#include <algorithm>
#include <array>
#include <iterator>

#include "../base/log.h"
#include "../base/wire.h"
#include "image.h"
#include "vosFile.h"
#include "vosSysConfig.h"

namespace {

using Bytes = std::span<const uint8_t>;
using OemBlock = std::array<uint8_t, 1024>;

struct Field {
    uint32_t offset;
    uint32_t size;
};
constexpr Field kFields[] = {{16, 128}, {144, 32},  {176, 32}, {208, 128}, {336, 64},
                             {400, 64}, {464, 128}, {592, 64}, {656, 128}};
constexpr bool adjoin() {
    for (std::size_t i = 1; i < std::size(kFields); ++i)
        if (kFields[i].offset != kFields[i - 1].offset + kFields[i - 1].size) return false;
    return true;
}
static_assert(std::size(kFields) == 9 && adjoin() && kFields[8].offset + kFields[8].size == 784);

constexpr std::size_t kRecordHeader = 12; /* magic, field, length of the value behind it */
constexpr uint8_t kMark[] = {'d', 'e', 'v', 'i', 'n', 'f', 'o', '\0'};

/* A text that is shorter than its field ends with a NUL, and the rest of the field is 0xFF. A field without a text is
 * all 0xFF. Storing a field also writes the mark at the beginning of the block. */
void storeField(OemBlock &block, const Field &field, Bytes value) {
    const auto place = std::span{block}.subspan(field.offset, field.size);
    std::ranges::fill(place, uint8_t{0xFF});
    std::ranges::copy(value, place.begin());
    if (!value.empty() && value.size() < field.size) place[value.size()] = '\0';
    std::ranges::copy(kMark, block.begin());
}

bool applyRecord(vos::WordReader &in, OemBlock &block) {
    const auto magic = in.networkWord();
    const auto index = in.networkWord();
    const auto length = in.networkWord();
    if (!length || *magic != VOS_PACKAGE_MAGIC || *index >= std::size(kFields)) return false;
    const auto value = in.bytes(*length);
    if (!value || *length > kFields[*index].size) return false;
    storeField(block, kFields[*index], *value);
    return true;
}

/* At most as many records as there are fields. False when bytes remain behind them. */
bool applyRecords(Bytes records, OemBlock &block) {
    vos::WordReader in{records};
    for (std::size_t i = 0; i < std::size(kFields) && in.left() > 0; ++i)
        if (!applyRecord(in, block)) return false;
    return in.left() == 0;
}

}  // namespace

namespace vos {

int32_t vosFileImageOemWrite(Bytes records) {
    const Caller me;
    if (records.size() < kRecordHeader) return VOS_ERROR;
    OemBlock block{};
    if (vosSysConfigDataGet(BSP_OEM_INFO, block.data(), block.size()) != VOS_OK)
        return failed(me, VOS_ERROR, "%s:vosSysConfigDataGet BSP_OEM_INFO failed.");
    if (!applyRecords(records, block)) return VOS_ERROR;
    if (vosSysConfigDataSet(BSP_OEM_INFO, block.data(), block.size()) != VOS_OK)
        return failed(me, VOS_ERROR, "\r\n%s:vosSysConfigDataSet BSP_OEM_INFO failed.");
    const uint32_t number = 1;
    if (vosSysConfigDataSet(BSP_OEM_NUMBER, &number, sizeof number) != VOS_OK)
        return failed(me, VOS_ERROR, "\r\n%s:vosSysConfigDataSet BSP_OEM_NUMBER failed.");
    return VOS_OK;
}

}  // namespace vos
