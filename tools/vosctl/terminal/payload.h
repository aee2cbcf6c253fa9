/* SPDX-License-Identifier: MIT */
/* Bytes of messages: reading them from the command line, and showing them. */
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

constexpr uint64_t kLongestFile = 0xFFFFFFFF; /* lengths of the library have 32 bits */

/* Calls the function with the bytes of a file, one part after the other; "-" is standard input. Throws a Failure for a
 * directory, when the file cannot be read, and when it has more bytes than the limit. The size is compared before a
 * byte is read where the file has one, and after each part where it has none, such as a pipe. */
void readParts(const std::string &path, uint64_t limit, const std::function<void(std::string_view)> &take);

/* A whole file, as readParts(). It uses no more memory than the limit. Throws a Failure when there is not enough
 * memory. */
std::string readWhole(const std::string &path, uint64_t limit = kLongestFile);

/* The bytes as text, if they have only printable characters, tabs and line ends, with or without NULs at the end. */
std::optional<std::string> textOf(std::string_view bytes);

/* Adds the members "bytes", "text" and "hex". */
void addPayload(Json &object, std::string_view bytes);
/* Prints text as lines, and other bytes as lines of offset, hexadecimal and characters. A "*" replaces lines that
 * repeat the one before it. The last line is always printed, because it shows the length. */
void printPayload(Output &out, std::string_view bytes);

}  // namespace vosctl

#endif
