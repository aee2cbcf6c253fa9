/* SPDX-License-Identifier: MIT */
/* What checking and installing images share. */
#ifndef VOS_FILE_IMAGE_H
#define VOS_FILE_IMAGE_H

#include <cstdint>
#include <optional>
#include <span>

namespace vos {

/* The type word of an image. */
inline constexpr uint32_t kBootImage = 1;
inline constexpr uint32_t kApplicationImage = 2;
inline constexpr uint32_t kPackageImage = 3;

/* Size of the header: four words in network byte order, which are type, compatibility words A and B, and the CRC-32 of
 * everything else in the image. */
inline constexpr std::size_t kImageHeader = 16;

/* Whether a buffer begins like a file package. */
bool isPackage(std::span<const uint8_t> image);

/* As the exported call, in 64 bits; none when the path cannot be examined. Traces under the exported call's name. */
std::optional<uint64_t> vosFileSizeGet(const char *path);

/* Applies a file package, entry by entry. Entries that were applied before a failure stay. Results: VOS_OK, those of
 * vosFileImageCheck(), VOS_ERR_PACKAGE_MAGIC, VOS_ERR_PACKAGE_LENGTH, VOS_ERR_ENTRY_KIND, VOS_ERROR. */
int32_t vosFileImageFileOp(std::span<const uint8_t> package);

/* Writes OEM records into the OEM information block. Nothing is stored unless every record is valid. Results: VOS_OK,
 * VOS_ERROR. */
int32_t vosFileImageOemWrite(std::span<const uint8_t> records);

}  // namespace vos

#endif
