/* SPDX-License-Identifier: MIT */
/* vosctl listen --script: plays a process as a file says. */
#ifndef VOSCTL_LISTENSCRIPT_H
#define VOSCTL_LISTENSCRIPT_H

#include <string>

#include "../terminal/report.h"

namespace vosctl {

/* The file is a script or a capture; `delays` keeps those of a capture. Returns kDone when all that is expected came,
 * and nothing else; else it throws a Failure that says what. */
int listenByScript(Output &out, const std::string &name, const std::string &file, bool delays);

}  // namespace vosctl

#endif
