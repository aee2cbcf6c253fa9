/* SPDX-License-Identifier: MIT */
/* Bytes of messages: from the command line, and as they are shown. */
#ifndef VOSCTL_PAYLOAD_H
#define VOSCTL_PAYLOAD_H

#include <optional>
#include <string>
#include <string_view>

#include "report.h"

namespace vosctl {

/* Pairs of hexadecimal digits, with or without blanks or colons between them; nothing for any other text. */
std::optional<std::string> bytesOfHex(std::string_view text);
std::string hexOf(std::string_view bytes);

/* A whole file; "-" is standard input. Throws a Failure. */
std::string readWhole(const std::string &path);

/* The bytes as text, when they are that: printing characters, tabs and line ends, perhaps with NULs behind them. */
std::optional<std::string> textOf(std::string_view bytes);

/* Adds the members "bytes", "text" and "hex". */
void addPayload(Json &object, std::string_view bytes);
/* Prints text as it is, and other bytes as lines of offset, hexadecimal and characters. */
void printPayload(Output &out, std::string_view bytes);

}  // namespace vosctl

#endif
