/* SPDX-License-Identifier: MIT */
/* Bytes of messages: from the command line, and as they are shown. */
#ifndef VOSCTL_PAYLOAD_H
#define VOSCTL_PAYLOAD_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "report.h"

namespace vosctl {

/* Pairs of hexadecimal digits, with or without blanks or colons between them; nothing for any other text. */
std::optional<std::string> bytesOfHex(std::string_view text);
std::string hexOf(std::string_view bytes);

constexpr uint64_t kLongestFile = 0xFFFFFFFF; /* the library tells lengths in 32 bits */

/* Hands the bytes of a file over, part after part; "-" is standard input. Throws a Failure for a directory, when the
 * file cannot be read, and when it has more bytes than the limit. The size is compared before a byte is read where the
 * file has one, and after each part where it has none, such as a pipe. */
void readParts(const std::string &path, uint64_t limit, const std::function<void(std::string_view)> &take);

/* A whole file, as readParts(). It takes no more memory than the limit; a Failure says so when there is not enough. */
std::string readWhole(const std::string &path, uint64_t limit = kLongestFile);

/* The bytes as text, when they are that: printing characters, tabs and line ends, perhaps with NULs behind them. */
std::optional<std::string> textOf(std::string_view bytes);

/* Adds the members "bytes", "text" and "hex". */
void addPayload(Json &object, std::string_view bytes);
/* Prints text as lines, and other bytes as lines of offset, hexadecimal and characters. A "*" is for lines that repeat
 * the one before it; the last line is always printed, so that the length is seen. */
void printPayload(Output &out, std::string_view bytes);

}  // namespace vosctl

#endif
