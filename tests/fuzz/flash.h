/* SPDX-License-Identifier: MIT */
/* What the fuzz targets of the flash formats share. */
#ifndef TESTS_FUZZ_FLASH_H
#define TESTS_FUZZ_FLASH_H

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <span>
#include <string>

#include "vos.h"

/* A device with an application and fresh partitions. Only in the sandbox. The log is off, because it is not read.
 */
inline void prepareDevice() {
    static const bool done = [] {
        if (getenv("VOS_SANDBOX") == nullptr) abort();
        std::ofstream{"/app/hostImage.bin"} << std::string(3, '\0') + '\2' + "AAAABBBB" + std::string(4, '\0');
        vosDebugConfig(0);
        return vosSysConfigDataInit() == VOS_OK;
    }();
    if (!done) abort();
}

inline void putWord(std::string &bytes, std::size_t offset, uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) bytes[offset++] = static_cast<char>(value >> shift);
}

/* The header that makes these bytes an acceptable image of a type. */
inline std::string soundHeader(uint32_t type, const std::string &payload) {
    std::string header = "....AAAABBBB....";
    putWord(header, 0, type);
    const auto *const bytes = reinterpret_cast<const uint8_t *>(payload.data());
    putWord(header, 12, ~vosFileCrc32(0xFFFFFFFFu, bytes, static_cast<uint32_t>(payload.size())));
    return header;
}

/* A block of exactly the bytes' size, so that the sanitizer sees its end. */
class Exact {
  public:
    explicit Exact(const std::string &bytes) : size_(bytes.size()), bytes_(static_cast<uint8_t *>(malloc(size_))) {
        memcpy(bytes_, bytes.data(), size_);
    }
    Exact(const Exact &) = delete;
    Exact &operator=(const Exact &) = delete;
    ~Exact() { free(bytes_); }
    [[nodiscard]] std::span<const uint8_t> get() const { return {bytes_, size_}; }

  private:
    std::size_t size_;
    uint8_t *bytes_;
};

#endif
