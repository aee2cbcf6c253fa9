/* SPDX-License-Identifier: MIT */
#include "log.h"

#include <gtest/gtest.h>

#include <cstring>
#include <regex>

namespace vostest {

namespace {

LogLine parseLine(const std::string &piece) {
    static const std::regex header{R"(^([^\r\n]*?)\((\d+)\) ([^]*)$)"};
    std::smatch found;
    if (!std::regex_match(piece, found, header)) return {"", 0, piece};
    return {found[1], static_cast<pid_t>(std::stol(found[2])), found[3]};
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
