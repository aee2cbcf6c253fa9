/* SPDX-License-Identifier: MIT */
/* Applying a file package to the device. */
#ifndef VOSCTL_APPLY_PACKAGE_H
#define VOSCTL_APPLY_PACKAGE_H

#include <string>
#include <vector>

#include "imageFile.h"
#include "packageFile.h"

namespace vosctl {

/* Throws a Failure when the files of the package do not fit, or when there is no valid partition for the OEM records.
 * Nothing is changed. */
void requireRoomForPackage(const std::vector<PackageEntry> &entries);

/* The library applies one entry after the other, and each is checked afterwards. When one was not applied right, its
 * file is restored, and a Failure says why and how many entries were applied. Signals are blocked meanwhile. The
 * compatibility words of the header are used for each entry. */
void applyPackage(const ImageHeader &header, const std::vector<PackageEntry> &entries, const std::string &file);

}  // namespace vosctl

#endif
