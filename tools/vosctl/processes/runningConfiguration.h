/* SPDX-License-Identifier: MIT */
/* The running configuration of a process. */
#ifndef VOSCTL_RUNNING_CONFIGURATION_H
#define VOSCTL_RUNNING_CONFIGURATION_H

#include <cstdint>
#include <string>

namespace vosctl {

/* Asks a process for its running configuration, with 0 for both arguments of its handler. A time-out of 0 waits without
 * a limit. Throws a Failure when it does not come in time, or when it may have been cut. */
std::string runningConfiguration(const std::string &name, uint32_t timeoutMs);

}  // namespace vosctl

#endif
