/* SPDX-License-Identifier: MIT */
/**
 * @file vosStore.hpp
 * C++: the saved configuration, the syslog, whole files and images on flash.
 */
#ifndef VOS_STORE_HPP
#define VOS_STORE_HPP

#include "vosBytes.hpp"
#include "vosFile.h"

namespace vos {
inline namespace api1 {

namespace detail {

/* A count of bytes, or an error. Bad arguments and a file that is not there leave no errno. */
inline result<std::size_t> count_of(int32_t result_code) noexcept {
    if (result_code < 0) return error{result_code, result_code == VOS_ERROR ? errno : 0};
    return static_cast<std::size_t>(result_code);
}
inline result<void> stored_as(int32_t code) noexcept { return error{code, code == VOS_ERROR ? errno : 0}; }

}  // namespace detail

/** The configuration that is saved on flash. Errors are those of the vosFileCfg calls. @threads any */
namespace config {

/** The loaded configuration, in memory until the end of its scope. */
class content {
  public:
    content(content &&other) noexcept : block_(std::exchange(other.block_, nullptr)), length_(other.length_) {}
    content &operator=(content &&other) noexcept {
        std::swap(block_, other.block_);
        std::swap(length_, other.length_);
        return *this;
    }
    ~content() { vosFileCfgFree(block_); }

    [[nodiscard]] std::string_view text() const noexcept { return {block_, length_}; }
    [[nodiscard]] bytes data() const noexcept { return {block_, length_}; }

  private:
    friend result<content> load() noexcept;
    content(char *block, uint32_t length) noexcept : block_(block), length_(length) {}
    char *block_;
    uint32_t length_;
};

/** @return VOS_ERR_NO_FILE when there is none; VOS_ERR_MEMORY; VOS_ERROR with errno */
inline result<content> load() noexcept {
    char *block = nullptr;
    uint32_t length = 0;
    const int32_t code = vosFileCfgRead(&block, &length);
    if (code != VOS_OK) return error{code, code == VOS_ERROR ? errno : 0};
    return result<content>{content{block, length}};
}
inline result<void> save(bytes from) noexcept {
    if (from.size() > UINT32_MAX) return error{VOS_ERR_PARAM};
    const char *const data = from.data() != nullptr ? from.chars().data() : "";
    return detail::stored_as(vosFileCfgWrite(data, static_cast<uint32_t>(from.size())));
}
inline result<void> save(std::string_view from) noexcept { return save(bytes{from}); }
[[nodiscard]] inline bool exists() noexcept { return vosFileCfgExist() == 1; }
/** Removes it, and the settings of core dumps; see vosFileCfgDelete(). */
inline void remove() noexcept { vosFileCfgDelete(); }

}  // namespace config

/** Whole files. @threads any */
namespace file {

[[nodiscard]] inline bool exists(c_text path) noexcept { return vosFileExist(path.get()) == 1; }
/** The size in bytes, up to 4 GiB. */
inline result<std::size_t> size(c_text path) noexcept {
    uint32_t found = 0;
    const int32_t code = vosFileSizeGet(path.get(), &found);
    if (code != VOS_OK) return detail::with_errno(code);
    return std::size_t{found};
}
/** Reads from the start, at most what fits. @return the bytes that came; VOS_ERR_NO_FILE; VOS_ERROR with errno */
inline result<bytes> read(c_text path, buffer room) noexcept {
    const std::size_t most = room.size() < INT32_MAX ? room.size() : INT32_MAX; /* the count is signed */
    const auto count = detail::count_of(vosFileRead(path.get(), room.data(), static_cast<uint32_t>(most)));
    if (!count) return count.why();
    return bytes{room.data(), *count};
}
/** Makes this the whole content; see vosFileWrite(). */
inline result<void> write(c_text path, content from) noexcept {
    if (from.size() > UINT32_MAX) return error{VOS_ERR_PARAM};
    return detail::stored_as(vosFileWrite(path.get(), from.data(), from.length()));
}
/** Removes a file or an empty directory; a failure is only logged. */
inline void remove(c_text path) noexcept { vosFileDelete(path.get()); }
/** Copies; see vosFileCopy() for what it does not report. */
inline result<void> copy(c_text from, c_text to) noexcept { return detail::done(vosFileCopy(from.get(), to.get())); }

}  // namespace file

/** The syslog that is saved on flash. @threads any */
namespace syslog {

/** @return the bytes that came; VOS_ERR_NO_FILE; VOS_ERROR with errno */
inline result<bytes> load(buffer room) noexcept {
    const std::size_t most = room.size() < INT32_MAX ? room.size() : INT32_MAX;
    const auto count = detail::count_of(vosFileSyslogRead(room.data(), static_cast<uint32_t>(most)));
    if (!count) return count.why();
    return bytes{room.data(), *count};
}
/** @return the number of bytes that were written, which may be a part */
inline result<std::size_t> save(bytes from) noexcept {
    if (from.size() > INT32_MAX) return error{VOS_ERR_PARAM};
    const void *const data = from.data() != nullptr ? static_cast<const void *>(from.data()) : "";
    return detail::count_of(vosFileSyslogWrite(data, static_cast<uint32_t>(from.size())));
}
inline result<std::size_t> save(std::string_view from) noexcept { return save(bytes{from}); }

}  // namespace syslog

/** Images of the application and of the boot loader. Errors are those of vosFileImageCheck(). */
namespace image {

enum class type : uint32_t { boot_loader = 1, application = 2, package = 3 };

/** The version of the application's backup. */
struct backup_state {
    bool exists;
    text<513> version; /**< Empty if there is none. */
};

namespace detail_image {
template <class Call>
result<void> of(bytes from, Call call) noexcept {
    if (from.size() > UINT32_MAX) return error{VOS_ERR_PARAM};
    return detail::stored_as(call(from.data(), static_cast<uint32_t>(from.size())));
}
}  // namespace detail_image

/** Whether an image may be installed. @threads any */
inline result<void> check(type of, bytes from) noexcept {
    return detail_image::of(from, [of](const uint8_t *data, uint32_t size) {
        return vosFileImageCheck(static_cast<uint32_t>(of), data, size);
    });
}
inline result<void> check_file(type of, c_text path) noexcept {
    return detail::stored_as(vosFileImageCheckFile(static_cast<uint32_t>(of), path.get()));
}
/** Installs an application or applies a package; see vosFileAppWrite(). @threads one at a time */
inline result<void> install(bytes from) noexcept { return detail_image::of(from, vosFileAppWrite); }
/** Writes the boot loader. */
inline result<void> write_boot_loader(bytes from) noexcept { return detail_image::of(from, vosFileBootWrite); }
/** Gives the installed application its version; without one it is not backed up later. */
inline result<void> set_version(c_text version) noexcept {
    return detail::stored_as(vosFileAppVerUpdate(version.get()));
}
inline result<backup_state> backup() noexcept {
    int32_t exists = 0;
    backup_state state{};
    const int32_t code = vosFileAppBackupVerGet(&exists, state.version.raw());
    if (code != VOS_OK) return error{code};
    state.exists = exists == 1;
    return state;
}

}  // namespace image

/** CRC-32 as of zlib. */
[[nodiscard]] inline uint32_t crc32(bytes of) noexcept {
    return ~vosFileCrc32(0xFFFFFFFF, of.data(), static_cast<uint32_t>(of.size()));
}

}  // namespace api1
}  // namespace vos

#endif
