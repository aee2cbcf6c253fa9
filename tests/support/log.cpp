/* SPDX-License-Identifier: MIT */
#include "log.h"

#include <gtest/gtest.h>

#include <cstring>

namespace vostest {

namespace {

constexpr std::size_t kLongestHeader = 64 - 2;  // behind CR LF; a parenthesis further on belongs to the text

/* "NAME(PID) MESSAGE", or a piece that has no such header. The name is not allowed to hold a parenthesis. */
LogLine parseLine(const std::string &piece) {
    const LogLine plain{"", 0, piece};
    const std::size_t open = piece.find('(');
    const std::size_t close = piece.find(") ", open);
    if (open == std::string::npos || close == std::string::npos || close + 2 > kLongestHeader) return plain;
    const std::string id = piece.substr(open + 1, close - open - 1);
    if (id.empty() || id.find_first_not_of("0123456789") != std::string::npos) return plain;
    return {piece.substr(0, open), static_cast<pid_t>(std::stol(id)), piece.substr(close + 2)};
}

}  // namespace

std::vector<LogLine> splitLog(const std::string &output) {
    std::vector<LogLine> lines;
    std::size_t begin = 0;
    while (begin <= output.size()) {
        const std::size_t end = std::min(output.find("\r\n", begin), output.size());
        if (end > begin) lines.push_back(parseLine(output.substr(begin, end - begin)));
        begin = end + 2;
    }
    return lines;
}

std::vector<std::string> logMessages(const std::string &output, pid_t pid) {
    std::vector<std::string> messages;
    for (const LogLine &line : splitLog(output)) {
        if (line.pid != 0) {
            EXPECT_EQ(line.pid, pid) << "header of: " << line.message;
        }
        messages.push_back(line.message);
    }
    return messages;
}

std::string errnoText(int error) { return std::to_string(error) + "(" + strerror(error) + ")"; }

}  // namespace vostest
