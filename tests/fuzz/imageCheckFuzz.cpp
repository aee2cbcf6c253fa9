/* SPDX-License-Identifier: MIT */
/* The image check. First byte: the expected type (low nibble), and whether the rest is a whole image (0x00) or a
 * payload to which a valid header is added (0x80). */
#include "flash.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    prepareDevice();
    if (size == 0) return 0;
    const uint32_t type = data[0] & 0x0F;
    const bool sealed = (data[0] & 0x80) != 0;
    std::string image(reinterpret_cast<const char *>(data) + 1, size - 1);
    if (sealed) image = type == 2 || type == 3 ? soundHeader(type, image) + image : image + soundHeader(type, image);
    const Exact exact{image};
    const int32_t result = vosFileImageCheck(type, exact.get().data(), static_cast<uint32_t>(image.size()));
    if (sealed && result != VOS_OK) abort();
    if (result != VOS_OK && result != VOS_ERROR && (result > VOS_ERR_IMAGE_TYPE || result < VOS_ERR_IMAGE_CRC)) abort();
    if (image.size() < 16 && result != VOS_ERROR) abort();
    return 0;
}
