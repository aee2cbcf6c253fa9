/* SPDX-License-Identifier: MIT */
/* Messages as they are shown. */
#ifndef VOSCTL_MESSAGE_REPORT_H
#define VOSCTL_MESSAGE_REPORT_H

#include <cstdint>
#include <string>
#include <vector>

#include "../processes/messages.h"
#include "../terminal/report.h"

namespace vosctl {

/* "request", "answer", "one-way" or "other". */
std::string stageOf(const Message &message);
/* "app", "object" and so on; a type without a name in hexadecimal. */
std::string typeOf(const Message &message);
/* All names that typeOf() and stageOf() can give but hexadecimal ones. */
std::vector<std::string> kindNames();

/* 1234567 as "1.235 ms". */
std::string durationText(uint64_t ns);

Json messageJson(const Message &message);
/* One line, with so much of the payload as fits so many characters. */
void printMessage(Output &out, const Message &message, std::size_t columns);

}  // namespace vosctl

#endif
