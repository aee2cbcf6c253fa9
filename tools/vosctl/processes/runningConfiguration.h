/* SPDX-License-Identifier: MIT */
/* The running configuration of a process. */
#ifndef VOSCTL_RUNNING_CONFIGURATION_H
#define VOSCTL_RUNNING_CONFIGURATION_H

#include <string>

namespace vosctl {

/* Asks a process for its running configuration, with both arguments of its builder 0. The library waits for up to 90
 * seconds. Throws a Failure when it cannot be had, or when it may have been cut. */
std::string runningConfiguration(const std::string &name);

}  // namespace vosctl

#endif
