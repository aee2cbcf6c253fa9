/* SPDX-License-Identifier: MIT */
/* The running configuration of a process. */
#ifndef VOSCTL_RUNNING_CONFIGURATION_H
#define VOSCTL_RUNNING_CONFIGURATION_H

#include <cstdint>
#include <string>

namespace vosctl {

/* Asks a process for its running configuration, with both arguments of its builder 0. A time-out of 0 is none. Throws a
 * Failure when it cannot be had in time, or when it may have been cut. */
std::string runningConfiguration(const std::string &name, uint32_t timeoutMs);

}  // namespace vosctl

#endif
