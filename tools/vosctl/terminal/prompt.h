/* SPDX-License-Identifier: MIT */
/* Reads a value that must not appear on the command line. */
#ifndef VOSCTL_PROMPT_H
#define VOSCTL_PROMPT_H

#include <string>

namespace vosctl {

/* A line from standard input, without its line end. On a terminal the user types it twice, and it is not shown. A
 * signal that comes meanwhile ends the tool after the terminal is restored. From a pipe or file the whole content is
 * read. Throws a Failure when there is no value, when the two differ, and when there is more than one line. */
std::string readValue(const std::string &what);

}  // namespace vosctl

#endif
