/* SPDX-License-Identifier: MIT */
/* Reading the kernel's text files of numbers. */
#ifndef VOS_SYS_NUMBERS_H
#define VOS_SYS_NUMBERS_H

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <string_view>

#include "../base/text.h"
#include "../base/uniqueFd.h"

namespace vos {

/* The beginning of a file: what one read returns. */
template <std::size_t Size>
class FileStart {
  public:
    /* Returns read()'s result. When it is negative the text is empty. */
    ssize_t readFrom(const UniqueFd &file) {
        const ssize_t count = read(file.get(), bytes_.data(), bytes_.size());
        length_ = count > 0 ? static_cast<std::size_t>(count) : 0;
        return count;
    }
    [[nodiscard]] std::string_view text() const { return {bytes_.data(), length_}; }

  private:
    std::array<char, Size> bytes_;
    std::size_t length_ = 0;
};

/* Takes words and numbers from the front of a text. If the expected word or a number is not there, all numbers from
 * that place on are 0. */
class Numbers {
  public:
    explicit Numbers(std::string_view text) : left_(text) {}

    void word(std::string_view expected) {
        if (startsWith(left_, expected))
            left_.remove_prefix(expected.size());
        else
            left_ = {};
    }

    /* Reads at most that many digits. Further digits stay in the text. */
    uint64_t number(std::size_t digits = std::string_view::npos) {
        left_.remove_prefix(std::min(left_.find_first_not_of(" \t\n"), left_.size()));
        uint64_t value = 0;
        const auto end = std::from_chars(left_.data(), left_.data() + std::min(left_.size(), digits), value);
        if (end.ec != std::errc{}) {
            left_ = {};
            return 0;
        }
        left_.remove_prefix(static_cast<std::size_t>(end.ptr - left_.data()));
        return value;
    }

  private:
    std::string_view left_;
};

}  // namespace vos

#endif
