/* SPDX-License-Identifier: MIT */
#include "commands.h"

#include <cstdio>

namespace vosctl {

int failedAfterResults(const std::string &what, const std::string &nextStep) {
    fprintf(stderr, "vosctl: %s; %s\n", printable(what).c_str(), printable(nextStep).c_str());
    return kFailed;
}

}  // namespace vosctl
