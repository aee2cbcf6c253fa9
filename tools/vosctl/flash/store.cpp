/* SPDX-License-Identifier: MIT */
#include "store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vosFile.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <limits>

#include "../base/failure.h"
#include "../base/fd.h"
#include "../terminal/payload.h"

namespace vosctl {

std::string loadFile(const std::string &path) {
    struct stat status {};
    if (path != "-" && stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode))
        throw Failure(path + " is a directory", "name a file");
    std::string content = readWhole(path);
    if (content.size() > std::numeric_limits<uint32_t>::max())
        throw Failure(path + " is longer than 4294967295 bytes", "name a shorter file");
    return content;
}

void storeFile(const std::string &path, std::string_view bytes) {
    const Fd file{open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)};
    if (!file) throw Failure(path + " cannot be created: " + strerror(errno), "name a file that can be written");
    for (std::string_view rest = bytes; !rest.empty();) {
        const ssize_t count = write(file.get(), rest.data(), rest.size());
        if (count < 0) throw Failure(path + " cannot be written: " + strerror(errno), "make room and run it again");
        rest.remove_prefix(static_cast<std::size_t>(count));
    }
    if (fsync(file.get()) != 0 && errno != EINVAL)
        throw Failure(path + " cannot be written: " + strerror(errno), "make room and run it again");
}

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
