/* SPDX-License-Identifier: MIT */
/* What the commands about the stores on flash share. */
#ifndef VOSCTL_STORE_H
#define VOSCTL_STORE_H

#include <cstdint>
#include <string>
#include <string_view>

#include "../terminal/report.h"

namespace vosctl {

inline const uint8_t *bytesOf(std::string_view text) { return reinterpret_cast<const uint8_t *>(text.data()); }
inline uint32_t lengthOf(std::string_view text) { return static_cast<uint32_t>(text.size()); }

/* The CRC-32 of images. */
uint32_t crc32Of(std::string_view bytes);

/* Words in network byte order. */
uint32_t networkWord(std::string_view bytes, std::size_t offset);
std::string networkBytes(uint32_t word);

/* Asks on the terminal whether to go on; throws a Failure unless the answer is yes. With yes set, nothing is asked. */
void confirm(const std::string &question, bool yes);

/* Prints on a terminal what is being done. Prints nothing when standard error is no terminal. */
void progress(const Output &out, const std::string &step);

}  // namespace vosctl

#endif
