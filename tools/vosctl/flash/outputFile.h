/* SPDX-License-Identifier: MIT */
/* The files that the tool itself makes for its user. */
#ifndef VOSCTL_OUTPUT_FILE_H
#define VOSCTL_OUTPUT_FILE_H

#include <string>
#include <string_view>

#include "../terminal/report.h"

namespace vosctl {

/* Whether the path means standard output: "-" or /dev/stdout. */
bool isStandardOutput(const std::string &path);

/* Makes the bytes the content of a file: written beside it and renamed, so that the earlier file is whole until the new one
 * is. An earlier file keeps its permissions, and a link is followed; a new file gets the mode, less the umask. What is no
 * regular file, such as a device, is written to. "-" is standard output. Throws a Failure; then nothing was changed. */
void storeFile(Output &out, const std::string &path, std::string_view bytes, unsigned mode = 0666);

}  // namespace vosctl

#endif
