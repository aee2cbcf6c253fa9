/* SPDX-License-Identifier: MIT */
/* The data partitions as a whole. */
#ifndef VOSCTL_PARTITION_H
#define VOSCTL_PARTITION_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "../base/fd.h"

namespace vosctl {

constexpr std::size_t kPartitionHeaderBytes = 128;

struct Partition {
    const char *name;  /* "factory" or "system" */
    const char **path; /* the library's variable */
    std::size_t bodyBytes;
    int32_t item; /* any of its items */

    [[nodiscard]] std::size_t bytes() const { return kPartitionHeaderBytes + bodyBytes; }
};

/* The factory partition, and the system partition behind it. */
std::span<const Partition> partitions();
const Partition &partitionOf(bool factory);

/* What is wrong with a partition: there is no file, it cannot be read, or what it holds is no partition. */
enum class Trouble { none, missing, unreadable, content };

/* NOLINTNEXTLINE(bugprone-exception-escape): moving an optional text does not throw, though the check thinks so */
struct PartitionState {
    Trouble trouble = Trouble::none;
    std::string reason; /* in words, unless there is no trouble */
    std::string remedy; /* what to do about it */
    std::string bytes;  /* of the partition: what lies behind it in the file is left out */
    uint64_t fileBytes = 0;
    std::optional<uint32_t> storedChecksum;
    std::optional<uint32_t> computedChecksum;

    [[nodiscard]] bool valid() const { return trouble == Trouble::none; }
};

/* Completes a partition whose save was interrupted, by the library's journal: its entry could undo what the tool
 * writes. Where that is not possible, the library cannot read the partition either. */
void completeSave(const Partition &partition);

/* Looks at what the library would read, after completeSave(). It never waits for a FIFO, and reads no more than a
 * partition has. */
PartitionState stateOf(const Partition &partition);

/* Throws a Failure unless the partition is valid. */
void requireValid(const Partition &partition);

/* The same for bytes that are not on the device yet. */
PartitionState stateOfBytes(const Partition &partition, std::string_view bytes);

/* Bytes of a body, from an offset on. */
struct BodyChange {
    std::size_t offset;
    std::string bytes;
};

/* A partition that is being changed: locked against every other program, and whole. */
class PartitionChange {
  public:
    /* Waits for the lock. Throws a Failure when the partition cannot be written or is not valid; nothing was changed.
     */
    explicit PartitionChange(const Partition &partition);

    /* Rewrites the partition in place, once, flushes it and reads it back. Returns why that was not possible; empty
     * when it was. */
    [[nodiscard]] std::string write(const std::vector<BodyChange> &changes) const;

    /* Makes it what it was. Returns false when that was not possible. */
    [[nodiscard]] bool putBack() const;

  private:
    [[nodiscard]] std::string rewrite(const std::string &bytes) const;
    [[nodiscard]] std::string store(const std::string &bytes) const;

    const Partition &partition_;
    Fd file_;
    std::string before_;
};

/* Makes a fresh partition beside the old one; it takes its place when it is whole. Throws a Failure; then the old one
 * is as it was. */
void makeFresh(const Partition &partition);

/* Makes these bytes the partition in the same way. */
void replacePartition(const Partition &partition, std::string_view bytes);

}  // namespace vosctl

#endif
