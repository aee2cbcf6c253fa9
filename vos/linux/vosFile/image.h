/* SPDX-License-Identifier: MIT */
/* What checking and installing images share. */
#ifndef VOS_FILE_IMAGE_H
#define VOS_FILE_IMAGE_H

#include <cstdint>
#include <span>

namespace vos {

/* The type word of an image. */
inline constexpr uint32_t kBootImage = 1;
inline constexpr uint32_t kApplicationImage = 2;
inline constexpr uint32_t kPackageImage = 3;

/* Four words in network byte order: type, compatibility words A and B, CRC-32 of everything else in the image. Type,
 * A and B of an image are compared before it is trusted with anything. */
inline constexpr std::size_t kImageHeader = 16;

/* Whether a buffer claims to be a file package. */
bool isPackage(std::span<const uint8_t> image);

/* Applies a file package, entry by entry; what is applied before a failure stays. Results: VOS_OK, those of
 * vosFileImageCheck(), VOS_ERR_PACKAGE_MAGIC, VOS_ERR_PACKAGE_LENGTH, VOS_ERR_ENTRY_KIND, VOS_ERROR. */
int32_t vosFileImageFileOp(std::span<const uint8_t> package);

/* Puts OEM records into the OEM information block. Nothing is stored unless every record is sound. Results: VOS_OK,
 * VOS_ERROR. */
int32_t vosFileImageOemWrite(std::span<const uint8_t> records);

}  // namespace vos

#endif
