/* SPDX-License-Identifier: MIT */
#include "payload.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <new>
#include <vector>

#include "../base/failure.h"
#include "../base/fd.h"
#include "progress.h"

namespace vosctl {

namespace {

constexpr std::size_t kLineBytes = 16;

int digitOf(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

constexpr std::size_t kPartBytes = 65536;
constexpr const char *kNameAFile = "name a file that can be read";

Failure tooLong(const std::string &path, const std::string &size, uint64_t limit) {
    return {path + " has " + size + " bytes, and at most " + std::to_string(limit) + " are taken",
            "name a shorter file"};
}

/* Checks the file before a byte is read. Returns the size; 0 when the file has none, such as a pipe. */
uint64_t requireSize(int fd, const std::string &path, uint64_t limit) {
    struct stat status {};
    if (fstat(fd, &status) != 0) return 0;
    if (S_ISDIR(status.st_mode)) throw Failure(path + " is a directory", "name a file");
    if (!S_ISREG(status.st_mode)) return 0;
    const auto size = static_cast<uint64_t>(status.st_size);
    if (size > limit) throw tooLong(path, std::to_string(size), limit);
    return size;
}

std::string dumpLine(std::size_t offset, std::string_view bytes) {
    char head[32];
    snprintf(head, sizeof head, "%06zx", offset);
    std::string line = head;
    std::string shown;
    for (const char byte : bytes) {
        line += " " + hexOf({&byte, 1});
        shown += byte >= 0x20 && byte < 0x7F ? byte : '.';
    }
    return line + std::string(3 * (kLineBytes - bytes.size()), ' ') + "  " + shown;
}

}  // namespace

std::optional<std::string> bytesOfHex(std::string_view text) {
    std::string bytes;
    for (std::size_t at = 0; at < text.size();) {
        if (text[at] == ' ' || text[at] == ':') {
            ++at;
            continue;
        }
        if (at + 1 == text.size() || digitOf(text[at]) < 0 || digitOf(text[at + 1]) < 0) return {};
        bytes += static_cast<char>(digitOf(text[at]) * 16 + digitOf(text[at + 1]));
        at += 2;
    }
    return bytes;
}

std::string hexOf(std::string_view bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

void readParts(const std::string &path, uint64_t limit, const std::function<void(std::string_view)> &take) {
    const Fd opened{path == "-" ? -1 : open(path.c_str(), O_RDONLY | O_CLOEXEC)};
    if (path != "-" && !opened) throw Failure(path + " cannot be opened: " + strerror(errno), kNameAFile);
    const int fd = path == "-" ? STDIN_FILENO : opened.get();
    Progress progress("reading " + path, requireSize(fd, path, limit));
    std::vector<char> part(std::min<uint64_t>(limit + 1, kPartBytes));
    for (uint64_t total = 0;;) {
        const ssize_t count = read(fd, part.data(), part.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw Failure(path + " cannot be read: " + strerror(errno), kNameAFile);
        if (count == 0) return;
        total += static_cast<uint64_t>(count);
        if (total > limit) throw tooLong(path, "more than " + std::to_string(limit), limit);
        take({part.data(), static_cast<std::size_t>(count)});
        progress.reached(total);
    }
}

std::string readWhole(const std::string &path, uint64_t limit) {
    std::string content;
    try {
        readParts(path, limit, [&content](std::string_view part) { content += part; });
    } catch (const std::bad_alloc &) {
        throw Failure("there is not enough memory for " + path, "name a shorter file, or end other programs");
    }
    return content;
}

std::optional<std::string> textOf(std::string_view bytes) {
    while (!bytes.empty() && bytes.back() == '\0') bytes.remove_suffix(1);
    std::string bare;
    std::copy_if(bytes.begin(), bytes.end(), std::back_inserter(bare),
                 [](char c) { return c != '\t' && c != '\n' && c != '\r'; });
    if (printable(bare) != bare) return {};
    return std::string(bytes);
}

void addPayload(Json &object, std::string_view bytes) {
    const auto text = textOf(bytes);
    object["bytes"] = bytes.size();
    object["text"] = text ? Json(*text) : Json(nullptr);
    object["hex"] = hexOf(bytes);
}

void printPayload(Output &out, std::string_view bytes) {
    if (const auto text = textOf(bytes)) {
        if (!text->empty()) out.lines(text->ends_with('\n') ? text->substr(0, text->size() - 1) : *text);
        return;
    }
    bool folded = false;
    for (std::size_t offset = 0; offset < bytes.size(); offset += kLineBytes) {
        const std::string_view part = bytes.substr(offset, kLineBytes);
        const bool last = offset + kLineBytes >= bytes.size();
        const bool repeated = !last && offset > 0 && part == bytes.substr(offset - kLineBytes, kLineBytes);
        if (repeated && !folded) out.line("*");
        if (!repeated) out.line(dumpLine(offset, part));
        folded = repeated;
    }
}

}  // namespace vosctl
