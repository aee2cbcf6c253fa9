/* SPDX-License-Identifier: MIT */
/* OEM records: whatever they are, the partition stays valid, and a refused block changes nothing. */
#include "flash.h"
#include "vosFile/image.h"

namespace {

std::string block() {
    std::string value(1024, '\0');
    if (vosSysConfigDataGet(BSP_OEM_INFO, value.data(), 1024) != VOS_OK) abort();
    return value;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    prepareDevice();
    const std::string before = block();
    const Exact exact{std::string(reinterpret_cast<const char *>(data), size)};
    const int32_t result = vos::vosFileImageOemWrite(exact.get());
    const std::string after = block();
    if (result == VOS_OK ? memcmp(after.data(), "devinfo", 8) != 0 : after != before) abort();
    if (after.substr(8, 8) != before.substr(8, 8) || after.substr(784) != before.substr(784)) abort();
    return 0;
}
