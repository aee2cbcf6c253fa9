/* SPDX-License-Identifier: MIT */
/* Whether an image may be installed on this device. */
#include <unistd.h>

#include <array>
#include <cstring>
#include <limits>

#include "../base/block.h"
#include "../base/file.h"
#include "../base/log.h"
#include "../base/wire.h"
#include "image.h"
#include "vosFile.h"

constinit const char *szAppFileName = "/app/hostImage.bin";

namespace {

using Bytes = std::span<const uint8_t>;

struct Image {
    Bytes header;
    Bytes payload;
};

/* Applications and packages begin with their header. A boot loader ends with it, because it runs from its first byte.
 */
Image split(uint32_t type, Bytes image) {
    if (type == vos::kApplicationImage || type == vos::kPackageImage)
        return {image.first(vos::kImageHeader), image.subspan(vos::kImageHeader)};
    return {image.last(vos::kImageHeader), image.first(image.size() - vos::kImageHeader)};
}

uint32_t headerWord(Bytes header, std::size_t offset) { return *vos::WordReader{header.subspan(offset)}.networkWord(); }

int32_t readInstalledHeader(vos::Caller me, std::span<uint8_t> header) {
    const vos::UniqueFd file = vos::openFile(szAppFileName, O_RDONLY);
    if (!file) return vos::failedErrno(me, VOS_ERROR, "%s:open app file failed errno:%d(%s).");
    errno = 0;
    if (read(file.get(), header.data(), header.size()) < static_cast<ssize_t>(header.size()))
        return vos::failedErrno(me, VOS_ERROR, "%s:read app file failed errno:%d(%s).");
    return VOS_OK;
}

bool compatible(Bytes header, Bytes installed) { return memcmp(&header[4], &installed[4], 2 * sizeof(uint32_t)) == 0; }

uint32_t crc32(Bytes payload) {
    return ~vosFileCrc32(0xFFFFFFFFu, payload.data(), static_cast<uint32_t>(payload.size()));
}

}  // namespace

int32_t vosFileImageCheck(uint32_t ulType, const uint8_t *pBuf, uint32_t ulBufLen) {
    const vos::Caller me;
    if (pBuf == nullptr || ulBufLen < vos::kImageHeader) return vos::failed(me, VOS_ERROR, "%s:parameter error.");
    const Image image = split(ulType, {pBuf, ulBufLen});
    if (headerWord(image.header, 0) != ulType) return VOS_ERR_IMAGE_TYPE;
    std::array<uint8_t, vos::kImageHeader> installed;
    if (const int32_t result = readInstalledHeader(me, installed); result != VOS_OK) return result;
    if (!compatible(image.header, installed)) return VOS_ERR_IMAGE_COMPAT;
    return headerWord(image.header, 12) == crc32(image.payload) ? VOS_OK : VOS_ERR_IMAGE_CRC;
}

int32_t vosFileImageCheckFile(uint32_t ulType, const char *pFileName) {
    constexpr uint64_t kLargest = std::numeric_limits<uint32_t>::max();
    const auto whole = vos::vosFileSizeGet(pFileName);
    if (!whole || *whole <= vos::kImageHeader || *whole > kLargest) return VOS_ERROR;
    const auto size = static_cast<uint32_t>(*whole);
    const vos::Block image = vos::allocate(size);
    if (image == nullptr) return VOS_ERROR;
    if (int64_t{vosFileRead(pFileName, image.get(), size)} < int64_t{size}) return VOS_ERROR;
    return vosFileImageCheck(ulType, image.get(), size);
}
