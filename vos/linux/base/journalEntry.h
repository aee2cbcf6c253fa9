/* SPDX-License-Identifier: MIT */
/* An entry of the journal: the new content of one file or partition, complete before the target is touched. The format
 * is described in docs/flash-formats.md. */
#ifndef VOS_BASE_JOURNAL_ENTRY_H
#define VOS_BASE_JOURNAL_ENTRY_H

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "text.h"

namespace vos::journal {

using Bytes = std::span<const uint8_t>;

/* With a longer path, of the target or of the journal's directory, there is no entry, and saves are refused. */
inline constexpr std::size_t kLongestPath = 1023;
inline constexpr std::size_t kLongestDirectory = 255;
inline constexpr std::size_t kHeaderSize = 32;

/* The names of an entry, and the paths from which they are made. */
class Names {
  public:
    static constexpr std::size_t kStem = 16; /* characters of entry() before its suffix */

    /* The target's path is made absolute, so that two working directories do not share an entry. */
    Names(const char *directory, const char *path);

    [[nodiscard]] bool fit() const { return known_ && path_.fits() && entryPath_.fits(); }
    [[nodiscard]] std::string_view path() const { return path_.view(); }
    [[nodiscard]] Bytes pathBytes() const; /* with the NUL */
    [[nodiscard]] const char *entryPath() const { return entryPath_.get(); }
    [[nodiscard]] const char *entry() const { return entry_.get(); }         /* in the directory */
    [[nodiscard]] const char *temporary() const { return temporary_.get(); } /* until the entry is complete */

  private:
    using Name = Text<24>;
    bool known_ = true; /* false: the working directory was needed and could not be read */
    Text<kLongestPath + 1> path_;
    Name entry_;
    Name temporary_;
    Text<kLongestDirectory + 1 + 24> entryPath_;
};

enum class Kind : uint32_t { File = 0, Partition = 1 };

struct Header {
    Kind kind;
    uint32_t pathLength; /* with the NUL */
    uint32_t contentLength;
    std::optional<uint32_t> previous; /* CRC-32 of the target's content before the save, if the writer knew it */
    uint32_t checksum;                /* CRC-32 of the header before this word, the path and the content */
};

/* The CRC-32 of zlib; start with 0. Not by vosFileCrc32(), whose table an application may change. */
uint32_t checksum(uint32_t before, Bytes bytes);

using HeaderBytes = std::array<uint8_t, kHeaderSize>;

/* The checksum of the header alone. checksum() continues it over the path and the content. */
uint32_t headerChecksum(const HeaderBytes &bytes);
HeaderBytes encode(const Header &header);
void seal(HeaderBytes &bytes, uint32_t value);
/* None when magic, version or kind are wrong. */
std::optional<Header> decode(const HeaderBytes &bytes);

}  // namespace vos::journal

#endif
