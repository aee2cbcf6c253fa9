/* SPDX-License-Identifier: MIT */
/* The device tree that a command uses: that of this machine, or one below a directory. */
#ifndef VOSCTL_DEVICE_TREE_H
#define VOSCTL_DEVICE_TREE_H

#include <string>

namespace vosctl {

/* Changes the library's exported paths to paths below a directory; an empty text does not change them. Throws a Failure
 * when there is no such directory. */
void useDeviceTree(const std::string &root);

/* A path of the device, below the directory that is used. */
std::string devicePath(const std::string &path);

}  // namespace vosctl

#endif
