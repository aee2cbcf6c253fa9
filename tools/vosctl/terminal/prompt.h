/* SPDX-License-Identifier: MIT */
/* A value that is not to be seen on the command line. */
#ifndef VOSCTL_PROMPT_H
#define VOSCTL_PROMPT_H

#include <string>

namespace vosctl {

/* A line from standard input, without its line end. On a terminal it is asked for twice and not shown; a signal that
 * comes then puts the terminal back first. From a pipe or file it is the whole content. Throws a Failure when nothing
 * is given, when the two differ, and when there is more than one line. */
std::string readValue(const std::string &what);

}  // namespace vosctl

#endif
