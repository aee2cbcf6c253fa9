/* SPDX-License-Identifier: MIT */
/* Reads the library's log lines from the output of a process. */
#ifndef TESTS_SUPPORT_LOG_H
#define TESTS_SUPPORT_LOG_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace vostest {

/* One piece of output: from one CR LF to the next. */
struct LogLine {
    std::string process;  // empty when the piece has no header, as a plain vosPrintf() line
    pid_t pid = 0;
    std::string message;
};

/* Splits output at every CR LF. What comes before the first one is a piece without a header, if it is not empty. */
std::vector<LogLine> splitLog(const std::string &output);

/* The messages of a child's output, in order. A line whose header names another process id than the child's fails the
 * test; pieces without a header are listed as they are. */
std::vector<std::string> logMessages(const std::string &output, pid_t pid);

/* The text that the C library has for an errno, as lines show it: "5(Input/output error)". */
std::string errnoText(int error);

}  // namespace vostest

#endif
