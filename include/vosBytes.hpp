/* SPDX-License-Identifier: MIT */
/**
 * @file vosBytes.hpp
 * C++: views of bytes, texts of a fixed size, and what may be sent: text, bytes, or a trivially copyable record.
 */
#ifndef VOS_BYTES_HPP
#define VOS_BYTES_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "vosResult.hpp"

namespace vos {
inline namespace api1 {

namespace detail {

template <class T>
inline constexpr bool is_byte =
    std::is_same_v<std::remove_cv_t<T>, char> || std::is_same_v<std::remove_cv_t<T>, unsigned char> ||
    std::is_same_v<std::remove_cv_t<T>, std::byte>;

/* The element of a container or view with data() and size(), or void. */
template <class R, class = void>
struct element {
    using type = void;
};
template <class R>
struct element<R, std::void_t<decltype(std::data(std::declval<R &>())), decltype(std::declval<R &>().size())>> {
    using type = std::remove_pointer_t<decltype(std::data(std::declval<R &>()))>;
};
template <class R>
using element_t = typename element<R>::type;

template <class R>
inline constexpr bool is_range = !std::is_void_v<element_t<R>>;

/* A pointer to characters, but not an array of them. */
template <class P>
inline constexpr bool is_c_string = std::is_same_v<P, const char *> || std::is_same_v<P, char *>;

/* A std::array has its elements inside, as a record has its members; other ranges have them elsewhere. */
template <class T, class = void>
inline constexpr bool is_array = false;
template <class T>
inline constexpr bool is_array<T, std::void_t<decltype(std::tuple_size<T>::value)>> = is_range<T>;

/* What may be sent as the bytes of an object. A pointer means nothing to another process. */
template <class T>
inline constexpr bool is_record =
    std::is_trivially_copyable_v<T> && !std::is_pointer_v<std::remove_all_extents_t<T>> &&
    !std::is_member_pointer_v<T> && !std::is_null_pointer_v<T> &&
    (!is_range<T> || is_array<T>)&&!std::is_pointer_v<element_t<T>> && !is_result<T> && !std::is_function_v<T>;

}  // namespace detail

/** A text that ends with a NUL, for the names and paths of the C calls: a literal, or a std::string. It is not copied.
 * A std::string_view does not compile, because it need not end with a NUL. */
class c_text {
  public:
    constexpr c_text(const char *text) noexcept : text_(text) {}
    constexpr c_text(std::nullptr_t) = delete;
    template <class S,
              class = std::enable_if_t<std::is_same_v<decltype(std::declval<const S &>().c_str()), const char *>>>
    c_text(const S &text) noexcept : text_(text.c_str()) {}
    [[nodiscard]] constexpr const char *get() const noexcept { return text_; }

  private:
    const char *text_;
};

/** A view of bytes that somebody else owns. */
class bytes {
  public:
    constexpr bytes() noexcept = default;
    bytes(const void *data, std::size_t size) noexcept : data_(static_cast<const uint8_t *>(data)), size_(size) {}
    /** Any container or view of char, unsigned char or std::byte. */
    template <class R, class = std::enable_if_t<detail::is_byte<detail::element_t<const R>>>>
    bytes(const R &range) noexcept : bytes(range.data(), range.size()) {}
    /** An array of bytes. One of char does not compile, since it may be a text or bytes: say which. */
    template <class E, std::size_t N, class = std::enable_if_t<detail::is_byte<E> && !std::is_same_v<E, char>>>
    bytes(const E (&array)[N]) noexcept : bytes(array, N) {}

    [[nodiscard]] constexpr const uint8_t *data() const noexcept { return data_; }
    [[nodiscard]] constexpr std::size_t size() const noexcept { return size_; }
    [[nodiscard]] constexpr bool empty() const noexcept { return size_ == 0; }
    [[nodiscard]] constexpr const uint8_t *begin() const noexcept { return data_; }
    [[nodiscard]] constexpr const uint8_t *end() const noexcept { return data_ + size_; }
    [[nodiscard]] constexpr uint8_t operator[](std::size_t at) const noexcept { return data_[at]; }

    /** All bytes as characters, NULs included. */
    [[nodiscard]] std::string_view chars() const noexcept { return {reinterpret_cast<const char *>(data_), size_}; }
    /** The text up to the first NUL, or all. */
    [[nodiscard]] std::string_view text() const noexcept {
        const std::string_view all = chars();
        return all.substr(0, all.find('\0'));
    }
    /** A copy of the record that these bytes are; VOS_ERR_PARAM when their number is not the record's size. */
    template <class T>
    [[nodiscard]] result<T> as() const noexcept {
        static_assert(detail::is_record<T>, "only a trivially copyable record can be made of bytes");
        if (size_ != sizeof(T)) return error{VOS_ERR_PARAM};
        T record;
        std::memcpy(static_cast<void *>(&record), data_, sizeof record);
        return record;
    }

  private:
    const uint8_t *data_ = nullptr;
    std::size_t size_ = 0;
};

/** Memory to write to, which somebody else owns. */
class buffer {
  public:
    constexpr buffer() noexcept = default;
    buffer(void *data, std::size_t size) noexcept : data_(static_cast<uint8_t *>(data)), size_(size) {}
    template <class R, class E = detail::element_t<R>,
              class = std::enable_if_t<detail::is_byte<E> && !std::is_const_v<E>>>
    buffer(R &range) noexcept : buffer(range.data(), range.size()) {}
    template <class E, std::size_t N, class = std::enable_if_t<detail::is_byte<E> && !std::is_const_v<E>>>
    buffer(E (&array)[N]) noexcept : buffer(array, N) {}

    [[nodiscard]] constexpr uint8_t *data() const noexcept { return data_; }
    [[nodiscard]] constexpr std::size_t size() const noexcept { return size_; }

  private:
    uint8_t *data_ = nullptr;
    std::size_t size_ = 0;
};

/** A text in a record of N bytes: at most N - 1 characters, and NULs to the end. As a payload it is always N bytes. */
template <std::size_t N>
class text {
    static_assert(N > 0);

  public:
    text() noexcept = default;
    text(std::string_view from) noexcept { assign(from); }
    template <class P, std::enable_if_t<detail::is_c_string<P>, int> = 0>
    text(const P &from) noexcept {
        assign(from);
    }
    /** An array of characters need not have a NUL. */
    template <std::size_t M>
    text(const char (&from)[M]) noexcept {
        assign({from, strnlen(from, M)});
    }
    text(const std::string &from) noexcept { assign(from); }

    /** Cuts what does not fit. */
    void assign(std::string_view from) noexcept {
        const std::size_t length = from.size() < N ? from.size() : N - 1;
        std::memmove(chars_, from.data() != nullptr ? from.data() : "", length);
        std::memset(chars_ + length, 0, N - length);
    }
    /** Up to the first NUL. Also safe when the record came from outside and has none. */
    [[nodiscard]] std::string_view view() const noexcept { return {chars_, strnlen(chars_, N)}; }
    operator std::string_view() const noexcept { return view(); }
    [[nodiscard]] bool empty() const noexcept { return chars_[0] == '\0'; }
    /** The text for a C call, with a NUL behind it: the last byte is made one. */
    [[nodiscard]] const char *c_str() noexcept { return chars_[N - 1] = '\0', chars_; }
    /** The N bytes, for a C call that fills them. */
    [[nodiscard]] char *raw() noexcept { return chars_; }

    friend bool operator==(const text &left, std::string_view right) noexcept { return left.view() == right; }
    friend bool operator!=(const text &left, std::string_view right) noexcept { return left.view() != right; }

  private:
    char chars_[N] = {};
};

template <std::size_t N, std::size_t M>
bool operator==(const text<N> &left, const text<M> &right) noexcept {
    return left.view() == right.view();
}
template <std::size_t N, std::size_t M>
bool operator!=(const text<N> &left, const text<M> &right) noexcept {
    return left.view() != right.view();
}

/**
 * A payload to send, for the time of the call: text (without a NUL), bytes, or a trivially copyable record (its bytes,
 * padding included). A pointer does not compile, nor does an object that is not trivially copyable.
 */
class content {
  public:
    constexpr content() noexcept = default;
    content(bytes from) noexcept : data_(from.data()), size_(from.size()) {}
    template <class P, std::enable_if_t<detail::is_c_string<P>, int> = 0>
    content(const P &from) noexcept : data_(from), size_(std::strlen(from)) {}
    /** An array of characters need not have a NUL. */
    template <std::size_t N>
    content(const char (&from)[N]) noexcept : data_(from), size_(strnlen(from, N)) {}
    /** A container or view of trivially copyable elements. */
    template <class R, class E = detail::element_t<const R>,
              class = std::enable_if_t<detail::is_record<std::remove_cv_t<E>> && !detail::is_array<R> &&
                                       !std::is_same_v<R, content> && !std::is_same_v<R, bytes>>>
    content(const R &range, std::nullptr_t = nullptr) noexcept : data_(range.data()), size_(range.size() * sizeof(E)) {}
    template <class T, class = std::enable_if_t<detail::is_record<T> && !std::is_same_v<T, content>>>
    content(const T &record) noexcept : data_(&record), size_(sizeof record) {}

    /** Never null. */
    [[nodiscard]] constexpr const void *data() const noexcept { return data_ != nullptr ? data_ : ""; }
    [[nodiscard]] constexpr std::size_t size() const noexcept { return size_; }
    /** What the C calls take. A size that a message cannot have stays one: it is refused with VOS_ERR_TOO_LONG. */
    [[nodiscard]] constexpr uint32_t length() const noexcept {
        return size_ < UINT32_MAX ? static_cast<uint32_t>(size_) : UINT32_MAX;
    }

  private:
    const void *data_ = nullptr;
    std::size_t size_ = 0;
};

}  // namespace api1
}  // namespace vos

#endif
