/* SPDX-License-Identifier: MIT */
/**
 * @file vosResult.hpp
 * C++: the result of a call, which is a value or an error with the library's code and errno.
 */
#ifndef VOS_RESULT_HPP
#define VOS_RESULT_HPP

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <optional>
#include <string>
#include <system_error>
#include <type_traits>
#include <utility>

#include "vosDebug.h"
#include "vosTypes.h"

/* The names are in an inline namespace, so that none of them is a name of the static library. */
namespace vos {
inline namespace api1 {

namespace detail {

/* Whether misuse ends the process. Like assert(), this is off where NDEBUG is defined. */
#ifdef NDEBUG
inline constexpr bool checked = false;
#else
inline constexpr bool checked = true;
#endif

/* Ends the process after one line. */
[[noreturn, gnu::cold]] inline void fail(const char *what) noexcept {
    vosPrintf("\r\nvos.hpp:%s\r\n", what);
    std::abort();
}

inline void check(bool holds, const char *what) noexcept {
    if constexpr (checked)
        if (!holds) fail(what);
    static_cast<void>(holds);
    static_cast<void>(what);
}

}  // namespace detail

/** The words for a code of vosTypes.h. A number with two meanings has both. */
[[nodiscard]] constexpr const char *words(int32_t code) noexcept {
    switch (code) {
        case VOS_OK:
            return "done";
        case VOS_ERROR:
            return "a system call failed, something was not found, or a check failed";
        case VOS_ERR_PARAM:
            return "bad argument";
        case VOS_ERR_NO_HANDLER:
            return "no handler for the request, a wrong checksum, or a package entry of unknown kind";
        case VOS_ERR_TIMEOUT:
            return "the time ran out, or a partition has the wrong magic";
        case VOS_ERR_MEMORY:
            return "memory could not be allocated";
        case VOS_ERR_EXIST:
            return "already there";
        case VOS_ERR_NOT_INIT:
            return "the message channel has not been opened";
        case VOS_ERR_TOO_LONG:
            return "the payload is too long";
        case VOS_ERR_FORK:
            return "the new process could not be created";
        case VOS_ERR_NO_FILE:
            return "the file does not exist or cannot be reached";
        case VOS_ERR_IMAGE_TYPE:
            return "the image is of another type";
        case VOS_ERR_IMAGE_COMPAT:
            return "the image does not fit the installed application";
        case VOS_ERR_IMAGE_CRC:
            return "the image's CRC-32 does not match its payload";
        case VOS_ERR_PACKAGE_MAGIC:
            return "a file package or one of its entries has the wrong magic";
        case VOS_ERR_PACKAGE_LENGTH:
            return "the package's length word does not match the package";
        default:
            return "unknown code";
    }
}

namespace detail {

class category final : public std::error_category {
  public:
    [[nodiscard]] const char *name() const noexcept override { return "vos"; }
    [[nodiscard]] std::string message(int code) const override { return words(code); }
    [[nodiscard]] std::error_condition default_error_condition(int code) const noexcept override {
        switch (code) {
            case VOS_ERR_PARAM:
                return std::errc::invalid_argument;
            case VOS_ERR_TIMEOUT:
                return std::errc::timed_out;
            case VOS_ERR_MEMORY:
                return std::errc::not_enough_memory;
            case VOS_ERR_EXIST:
                return std::errc::file_exists;
            case VOS_ERR_NOT_INIT:
                return std::errc::not_connected;
            case VOS_ERR_TOO_LONG:
                return std::errc::message_size;
            case VOS_ERR_NO_FILE:
                return std::errc::no_such_file_or_directory;
            default:
                return {code, *this};
        }
    }
};

/* Made at its first use and never destroyed, so that no program pays for it at its start and its end. */
inline const category &the_category() noexcept {
    alignas(category) static unsigned char room[sizeof(category)];
    static const category *const made = new (room) category;
    return *made;
}

}  // namespace detail

/** The category of the library's codes: std::error_code{VOS_ERR_TIMEOUT, vos::category()}. */
[[nodiscard]] inline const std::error_category &category() noexcept { return detail::the_category(); }

/** Why a call failed. */
class error {
  public:
    /** A code of vosTypes.h, and the errno that belongs to it; 0: none. */
    constexpr explicit error(int32_t code, int error_number = 0) noexcept : code_(code), number_(error_number) {}

    [[nodiscard]] constexpr int32_t code() const noexcept { return code_; }
    /** errno of the failed system call, or 0 where no system call failed or the call does not tell it. */
    [[nodiscard]] constexpr int error_number() const noexcept { return number_; }
    [[nodiscard]] constexpr bool timed_out() const noexcept { return code_ == VOS_ERR_TIMEOUT; }
    [[nodiscard]] constexpr const char *words() const noexcept { return api1::words(code_); }
    [[nodiscard]] std::error_code error_code() const noexcept { return {code_, category()}; }

  private:
    int32_t code_;
    int number_;
};

namespace detail {

/* What value() does on a failure: with exceptions it throws std::system_error, without them it ends the process. */
[[noreturn, gnu::cold, gnu::noinline]] inline void no_value(error why) {
#ifdef __cpp_exceptions
    const std::string reason =
        why.error_number() != 0 ? std::generic_category().message(why.error_number()) : std::string{"no errno"};
    throw std::system_error(why.error_code(), reason);
#else
    vosPrintf("\r\nvos.hpp:value() of a failed result: code %d, %s, errno %d\r\n", why.code(), why.words(),
              why.error_number());
    std::abort();
#endif
}

}  // namespace detail

/**
 * A value, or the error why there is none. A result that is not looked at is a warning of the compiler.
 *
 * Nothing here throws but value() on a failure. Without exceptions value() then prints a line and ends the process.
 */
template <class T>
class [[nodiscard]] result {
  public:
    using value_type = T;

    constexpr result(T value) noexcept(std::is_nothrow_move_constructible_v<T>)
        : error_(VOS_OK), value_(std::move(value)) {}
    /** VOS_OK is no reason why there is no value: it is taken as VOS_ERROR. */
    constexpr result(error why) noexcept : error_(why.code() != VOS_OK ? why : error{VOS_ERROR, why.error_number()}) {}

    [[nodiscard]] constexpr bool has_value() const noexcept { return error_.code() == VOS_OK; }
    [[nodiscard]] constexpr explicit operator bool() const noexcept { return has_value(); }

    /** VOS_OK, or the code of the failure. */
    [[nodiscard]] constexpr int32_t code() const noexcept { return error_.code(); }
    [[nodiscard]] constexpr int error_number() const noexcept { return error_.error_number(); }
    [[nodiscard]] constexpr bool timed_out() const noexcept { return error_.timed_out(); }
    [[nodiscard]] constexpr const char *words() const noexcept { return error_.words(); }
    [[nodiscard]] std::error_code error_code() const noexcept { return error_.error_code(); }
    /** To pass a failure on from a function with another result: if (!r) return r.why(); */
    [[nodiscard]] constexpr error why() const noexcept { return error_; }

    constexpr T &value() & { return has_value() ? *value_ : (detail::no_value(error_), *value_); }
    constexpr const T &value() const & { return has_value() ? *value_ : (detail::no_value(error_), *value_); }
    constexpr T &&value() && { return std::move(value()); }
    template <class U>
    [[nodiscard]] constexpr T value_or(U &&other) const & {
        return has_value() ? *value_ : static_cast<T>(std::forward<U>(other));
    }
    template <class U>
    [[nodiscard]] constexpr T value_or(U &&other) && {
        return has_value() ? std::move(*value_) : static_cast<T>(std::forward<U>(other));
    }

    /** Without a value this is misuse: it ends the process in a debug build. */
    constexpr T &operator*() &noexcept { return looked(), *value_; }
    constexpr const T &operator*() const &noexcept { return looked(), *value_; }
    constexpr T &&operator*() &&noexcept { return looked(), std::move(*value_); }
    constexpr T *operator->() noexcept { return looked(), &*value_; }
    constexpr const T *operator->() const noexcept { return looked(), &*value_; }

  private:
    constexpr void looked() const noexcept {
        if constexpr (detail::checked)
            if (!has_value()) detail::fail("a failed result has no value; ask has_value() first");
    }

    error error_;
    std::optional<T> value_;
};

/** The result of a call that has no value. */
template <>
class [[nodiscard]] result<void> {
  public:
    using value_type = void;

    constexpr result() noexcept : error_(VOS_OK) {}
    constexpr result(error why) noexcept : error_(why) {}

    [[nodiscard]] constexpr bool has_value() const noexcept { return error_.code() == VOS_OK; }
    [[nodiscard]] constexpr explicit operator bool() const noexcept { return has_value(); }
    [[nodiscard]] constexpr int32_t code() const noexcept { return error_.code(); }
    [[nodiscard]] constexpr int error_number() const noexcept { return error_.error_number(); }
    [[nodiscard]] constexpr bool timed_out() const noexcept { return error_.timed_out(); }
    [[nodiscard]] constexpr const char *words() const noexcept { return error_.words(); }
    [[nodiscard]] std::error_code error_code() const noexcept { return error_.error_code(); }
    [[nodiscard]] constexpr error why() const noexcept { return error_; }
    constexpr void value() const {
        if (!has_value()) detail::no_value(error_);
    }

  private:
    error error_;
};

namespace detail {

template <class T>
inline constexpr bool is_result = false;
template <class T>
inline constexpr bool is_result<result<T>> = true;

/* The result of a C call that returns VOS_OK or a code. Some calls leave the reason of VOS_ERROR in errno. */
inline result<void> done(int32_t code) noexcept { return error{code}; }
inline error with_errno(int32_t code) noexcept { return error{code, code == VOS_OK ? 0 : errno}; }

}  // namespace detail

}  // namespace api1
}  // namespace vos

#endif
