/* SPDX-License-Identifier: MIT */
/* Writing the boot loader to its flash device. */
#ifndef VOSCTL_BOOT_LOADER_H
#define VOSCTL_BOOT_LOADER_H

#include "journal.h"

namespace vosctl {

/* Throws a Failure when the device cannot be written, or when the image is longer than the device. Nothing is changed.
 */
void requireBootLoaderFits(const std::string &image, const std::string &file);

/* Writes the image, flushes it, and reads it back from the device. When the bytes differ, the earlier bytes are
 * restored, and a Failure says what the device has now. Signals are blocked meanwhile. */
void writeBootLoader(const std::string &image, const std::string &file);

/* Whether the device begins with this image, whole. False also when it cannot be read. */
bool holdsBootLoader(const ImageMark &image);

}  // namespace vosctl

#endif
