/* SPDX-License-Identifier: MIT */
/* The partitions' files. First byte: with bit 0 it is the system partition, else the factory partition; with bit 1
 * magic and checksum are corrected. */
#include "flash.h"

namespace {

void putNative(std::string &bytes, std::size_t offset, uint32_t value) { memcpy(&bytes[offset], &value, 4); }

void seal(std::string &file, std::size_t body) {
    file.resize(128 + body);
    const auto *const bytes = reinterpret_cast<const uint8_t *>(&file[128]);
    putNative(file, 4, VOS_PARTITION_MAGIC);
    putNative(file, 8, Cal_CRC(bytes, static_cast<uint32_t>(body)));
}

/* Reads every item, and some numbers that are no items, into blocks of exactly the given length. */
int32_t readAll(uint32_t length) {
    int32_t last = VOS_ERROR;
    for (int32_t item = -1; item < 24; ++item) {
        const Exact value{std::string(length, '\0')};
        const int32_t result = vosSysConfigDataGet(item, const_cast<uint8_t *>(value.get().data()), length);
        if (result == VOS_OK) last = result;
    }
    return last;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    prepareDevice();
    if (size == 0) return 0;
    const bool system = (data[0] & 1) != 0;
    const bool sealed = (data[0] & 2) != 0;
    std::string file(reinterpret_cast<const char *>(data) + 1, size - 1);
    if (sealed) seal(file, system ? sizeof flashData : sizeof flashConfig);
    std::ofstream{system ? szSysData : szFactoryData, std::ios::binary | std::ios::trunc} << file;
    readAll(data[0]);
    if (readAll(1024) != VOS_OK) abort(); /* the other partition is always valid */
    std::string serial(40, '\xAA');
    vosProdSerialNoRead(serial.data(), 40);
    if (memchr(serial.data(), '\0', 33) == nullptr) abort();
    vosSysConfigDataInit();
    const uint32_t word = 1;
    if (vosSysConfigDataSet(BSP_OEM_NUMBER, &word, 4) != VOS_OK) abort();
    if (vosSysConfigDataSet(BSP_BANDRATE, &word, 4) != VOS_OK) abort();
    return 0;
}
