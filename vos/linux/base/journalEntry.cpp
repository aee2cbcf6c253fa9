/* SPDX-License-Identifier: MIT */
#include "journalEntry.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "crc32.h"
#include "wire.h"

namespace vos::journal {

namespace {

constexpr uint32_t kMagic = 0x4A524E4C;
constexpr uint32_t kVersion = 1;
constexpr std::size_t kChecksumOffset = kHeaderSize - sizeof(uint32_t);

/* FNV-1a with 64 bits: two paths of one device practically never have the same hash, and an entry whose recorded path
 * differs is never used. */
uint64_t hash(std::string_view text) {
    uint64_t value = 0xCBF29CE484222325;
    for (const char c : text) value = (value ^ static_cast<uint8_t>(c)) * 0x100000001B3;
    return value;
}

void putWord(HeaderBytes &bytes, std::size_t word, uint32_t value) {
    value = __builtin_bswap32(value);
    memcpy(&bytes[word * sizeof value], &value, sizeof value);
}

}  // namespace

Names::Names(const char *directory, const char *path) {
    if (*path != '/') {
        std::array<char, kLongestPath + 1> working;
        known_ = getcwd(working.data(), working.size()) != nullptr;
        path_.append(known_ ? working.data() : "").append("/");
    }
    path_.append(path);
    std::array<char, kStem> digits;
    uint64_t value = hash(path_.view());
    for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit, value >>= 4)
        *digit = "0123456789abcdef"[value & 0xF];
    const std::string_view stem{digits.data(), digits.size()};
    entry_.append(stem).append(".save");
    temporary_.append(stem).append(".new");
    entryPath_.append(directory).append("/").append(entry_.view());
}

Bytes Names::pathBytes() const { return {reinterpret_cast<const uint8_t *>(path_.get()), path_.length() + 1}; }

uint32_t checksum(uint32_t before, Bytes bytes) { return ~crc32::byWord(crc32::Slicing{}, ~before, bytes); }

uint32_t headerChecksum(const HeaderBytes &bytes) { return checksum(0, Bytes{bytes}.first(kChecksumOffset)); }

HeaderBytes encode(const Header &header) {
    HeaderBytes bytes{};
    putWord(bytes, 0, kMagic);
    putWord(bytes, 1, kVersion);
    putWord(bytes, 2, static_cast<uint32_t>(header.kind));
    putWord(bytes, 3, header.pathLength);
    putWord(bytes, 4, header.contentLength);
    putWord(bytes, 5, header.previous ? 1 : 0);
    putWord(bytes, 6, header.previous.value_or(0));
    return bytes;
}

void seal(HeaderBytes &bytes, uint32_t value) { putWord(bytes, kChecksumOffset / sizeof value, value); }

std::optional<Header> decode(const HeaderBytes &bytes) {
    WordReader in{bytes};
    if (*in.networkWord() != kMagic || *in.networkWord() != kVersion) return std::nullopt;
    const uint32_t kind = *in.networkWord();
    if (kind > static_cast<uint32_t>(Kind::Partition)) return std::nullopt;
    Header header{.kind = static_cast<Kind>(kind), .pathLength = 0, .contentLength = 0, .previous = {}, .checksum = 0};
    header.pathLength = *in.networkWord();
    header.contentLength = *in.networkWord();
    const bool known = *in.networkWord() != 0;
    const uint32_t previous = *in.networkWord();
    if (known) header.previous = previous;
    header.checksum = *in.networkWord();
    return header;
}

}  // namespace vos::journal
