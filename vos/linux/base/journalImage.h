/* SPDX-License-Identifier: MIT */
/* What was installed last, as a record in the journal. An image is too large to be written twice, so a power cut can
 * tear it. The record tells afterwards whether the old image or the new one lies there, or a part of one. */
#ifndef VOS_BASE_JOURNAL_IMAGE_H
#define VOS_BASE_JOURNAL_IMAGE_H

#include "journal.h"

namespace vos::journal {

/* An image is recognised by its length and its header, which contains the CRC-32 of the rest. */
using ImageHeader = std::array<uint8_t, 16>;
struct ImageMark {
    uint32_t length;
    ImageHeader header;
};

/* The image at the target now, by the first bytes of the file. None when it has no header or cannot be read. */
std::optional<ImageMark> imageAt(const char *path);

/* Replaces the target's record. It stays until the next installation. A failure is logged and stops nothing; then there
 * is no record, if it can be removed. */
void recordImage(const Target &target, const ImageMark &wanted, const std::optional<ImageMark> &old);

}  // namespace vos::journal

#endif
