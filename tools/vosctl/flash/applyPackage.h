/* SPDX-License-Identifier: MIT */
/* Applying a file package to the device. */
#ifndef VOSCTL_APPLY_PACKAGE_H
#define VOSCTL_APPLY_PACKAGE_H

#include <string>
#include <vector>

#include "imageFile.h"
#include "packageFile.h"

namespace vosctl {

/* Throws a Failure when the files of the package have no room, or when the OEM records have no valid partition to go
 * to. Nothing is changed. */
void requireRoomForPackage(const std::vector<PackageEntry> &entries);

/* Lets the library apply one entry after the other, and looks whether each has arrived. At the first that has not, what
 * its file was before is put back, and a Failure says why and how many entries were applied. Signals are held
 * meanwhile. The header tells the words that each entry is to carry. */
void applyPackage(const ImageHeader &header, const std::vector<PackageEntry> &entries, const std::string &file);

}  // namespace vosctl

#endif
