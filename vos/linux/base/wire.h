/* SPDX-License-Identifier: MIT */
/* Reads bytes that come from outside: words, byte sequences and texts, never past the end. */
#ifndef VOS_BASE_WIRE_H
#define VOS_BASE_WIRE_H

#include <bit>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>

namespace vos {

/* Reads from front to back. A read past the end returns nullopt and does not change the position. Lengths have 64 bits,
 * so that a sum of lengths from outside does not wrap before it is compared. */
class WordReader {
  public:
    explicit WordReader(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    [[nodiscard]] std::size_t offset() const { return offset_; }
    [[nodiscard]] std::size_t left() const { return bytes_.size() - offset_; }

    std::optional<std::span<const uint8_t>> bytes(uint64_t length) {
        if (length > left()) return std::nullopt;
        const auto taken = bytes_.subspan(offset_, length);
        offset_ += length;
        return taken;
    }

    /* A word in the machine's byte order. */
    std::optional<uint32_t> word() {
        const auto taken = bytes(sizeof(uint32_t));
        if (!taken) return std::nullopt;
        uint32_t value = 0;
        memcpy(&value, taken->data(), sizeof value);
        return value;
    }

    /* A word in network byte order. */
    std::optional<uint32_t> networkWord() {
        const auto value = word();
        if (!value) return std::nullopt;
        return std::endian::native == std::endian::big ? *value : __builtin_bswap32(*value);
    }

    /* A field of that many bytes which holds a NUL-terminated text. */
    std::optional<const char *> text(uint64_t length) {
        if (length == 0 || length > left() || memchr(&bytes_[offset_], '\0', length) == nullptr) return std::nullopt;
        return reinterpret_cast<const char *>(bytes(length)->data());
    }

  private:
    std::span<const uint8_t> bytes_;
    std::size_t offset_ = 0;
};

}  // namespace vos

#endif
