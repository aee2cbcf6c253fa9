/* SPDX-License-Identifier: MIT */
/* Short texts in a buffer of their own: no heap, no format, never past the end. */
#ifndef VOS_BASE_TEXT_H
#define VOS_BASE_TEXT_H

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <string_view>

namespace vos {

/* In place of starts_with(), which may call substr(): its range check needs the C++ run time in a build without
 * optimization. */
inline bool startsWith(std::string_view text, std::string_view word) { return text.rfind(word, 0) == 0; }

/* A NUL-terminated text of at most Size - 1 characters. What does not fit is cut off; fits() is then false. */
template <std::size_t Size>
class Text {
  public:
    /* Only the first byte is set: the rest is written before it is read. */
    Text() { text_[0] = '\0'; }

    Text &append(std::string_view more) {
        const std::size_t room = Size - 1 - length_;
        if (more.size() <= room) [[likely]]
            return put(more);
        fits_ = false;
        return put({more.data(), room}); /* substr() could throw */
    }

    /* Not inlined: the conversion is large, and a caller often has several numbers. */
    template <class Integer>
    [[gnu::noinline]] Text &appendDecimal(Integer number) {
        std::array<char, 24> digits;
        const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
        return append({digits.data(), static_cast<std::size_t>(end - digits.data())});
    }

    [[nodiscard]] bool fits() const { return fits_; }
    [[nodiscard]] std::size_t length() const { return length_; }
    [[nodiscard]] const char *get() const { return text_.data(); }
    [[nodiscard]] std::string_view view() const { return {text_.data(), length_}; }

  private:
    /* Inlined: for a literal of known size the compiler makes a few moves of this. */
    Text &put(std::string_view more) {
        std::copy_n(more.data(), more.size(), text_.data() + length_);
        length_ += more.size();
        text_[length_] = '\0';
        return *this;
    }

    std::array<char, Size> text_;
    std::size_t length_ = 0;
    bool fits_ = true;
};

}  // namespace vos

#endif
