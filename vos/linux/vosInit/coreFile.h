/* SPDX-License-Identifier: MIT */
/* The optional record on flash that limits core files and moves them. */
#ifndef VOS_INIT_CORE_FILE_H
#define VOS_INIT_CORE_FILE_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace vos {

/* The record as other programs of the device write it, in the machine's byte order. What follows it in the file is not
 * read. */
struct CoreFileRecord {
    uint32_t magic;
    uint32_t sizeMiB;
    char directory[36]; /* padded with NULs; the last four are never used */
};
static_assert(sizeof(CoreFileRecord) == 44);
static_assert(offsetof(CoreFileRecord, sizeMiB) == 4 && offsetof(CoreFileRecord, directory) == 8);

constexpr uint32_t kCoreFileMagic = 0x5AA5A55A;

struct CoreFileSettings {
    uint32_t sizeMiB = 0; /* 0: unlimited */
    std::array<char, 33> directory{"/flash"};
};

/* What the record says, or the defaults when it is missing, short or not valid. */
CoreFileSettings readCoreFileSettings();

}  // namespace vos

#endif
