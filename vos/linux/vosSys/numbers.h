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

#include "../base/uniqueFd.h"

namespace vos {

/* The beginning of a file, as far as one read brings it. */
template <std::size_t Size>
class FileStart {
  public:
    /* The read's result: negative when it failed, and then the text is empty. */
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

/* Takes numbers and words from the front of a text. What does not stand there is a 0, and so is all that follows. */
class Numbers {
  public:
    explicit Numbers(std::string_view text) : left_(text) {}

    void word(std::string_view expected) {
        if (left_.rfind(expected, 0) == 0) /* starts_with() may throw, and the library has nobody to throw to */
            left_.remove_prefix(expected.size());
        else
            left_ = {};
    }

    /* Of at most that many digits; more of them are left standing. */
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
