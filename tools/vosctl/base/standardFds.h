/* SPDX-License-Identifier: MIT */
/* Standard input, output and error, of which any may be closed when the tool starts. */
#ifndef VOSCTL_STANDARD_FDS_H
#define VOSCTL_STANDARD_FDS_H

namespace vosctl {

/* Opens /dev/null in place of each that is closed, so that no file which is opened later gets its number. Reading that
 * standard input and writing that standard output fail. False when /dev/null cannot be opened. */
bool occupyStandardFds();

/* Whether standard output can be written. */
bool isStandardOutputOpen();

}  // namespace vosctl

#endif
