/* SPDX-License-Identifier: MIT */
/* A file package. The input follows an image header that is always valid. When its first byte is 1, the package's
 * length word is corrected, too. */
#include "flash.h"
#include "vosFile/image.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    prepareDevice();
    if (size == 0) return 0;
    std::string payload(reinterpret_cast<const char *>(data) + 1, size - 1);
    /* A permitted path may leave its directory with "..", and could reach the files of the fuzzer. */
    if (payload.find("..") != std::string::npos) return -1;
    if (data[0] == 1 && payload.size() >= 16) putWord(payload, 4, static_cast<uint32_t>(payload.size() - 16));
    const Exact exact{soundHeader(3, payload) + payload};
    switch (vos::vosFileImageFileOp(exact.get())) {
        case VOS_OK:
        case VOS_ERROR:
        case VOS_ERR_ENTRY_KIND:
        case VOS_ERR_PACKAGE_MAGIC:
        case VOS_ERR_PACKAGE_LENGTH:
            break;
        default:
            abort();
    }
    if (access("/app/hostImage.bin", F_OK) != 0) abort(); /* no entry may touch it */
    return 0;
}
