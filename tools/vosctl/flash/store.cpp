/* SPDX-License-Identifier: MIT */
#include "store.h"

#include <unistd.h>
#include <vosFile.h>

#include <cstdio>
#include <iostream>

#include "../base/failure.h"

namespace vosctl {

uint32_t crc32Of(std::string_view bytes) { return ~vosFileCrc32(0xFFFFFFFF, bytesOf(bytes), lengthOf(bytes)); }

uint32_t networkWord(std::string_view bytes, std::size_t offset) {
    uint32_t word = 0;
    for (const char byte : bytes.substr(offset, 4)) word = word << 8 | static_cast<unsigned char>(byte);
    return word;
}

std::string networkBytes(uint32_t word) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(word >> shift & 0xFF);
    return bytes;
}

void confirm(const std::string &question, bool yes) {
    if (yes) return;
    if (isatty(STDIN_FILENO) != 1)
        throw Failure(question + " Nobody can be asked: standard input is no terminal",
                      "run it again with --yes if that is wanted");
    fprintf(stderr, "%s [y/N] ", printable(question).c_str());
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "y" && answer != "Y" && answer != "yes")
        throw Failure("nothing was changed", "answer y, or run it again with --yes");
}

void progress(const Output &out, const std::string &step) {
    if (!out.json() && isatty(STDERR_FILENO) == 1) fprintf(stderr, "%s ...\n", printable(step).c_str());
}

}  // namespace vosctl
