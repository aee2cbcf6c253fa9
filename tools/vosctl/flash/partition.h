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

/* The factory partition, then the system partition. */
std::span<const Partition> partitions();
const Partition &partitionOf(bool factory);

/* What is wrong with a partition: its file does not exist, cannot be read, or has no valid partition. */
enum class Trouble { none, missing, unreadable, content };

/* NOLINTNEXTLINE(bugprone-exception-escape): moving an optional text does not throw; the check is wrong here */
struct PartitionState {
    Trouble trouble = Trouble::none;
    std::string reason; /* empty when nothing is wrong */
    std::string remedy; /* what the user can do */
    std::string bytes;  /* of the partition, without what follows it in the file */
    uint64_t fileBytes = 0;
    std::optional<uint32_t> storedChecksum;
    std::optional<uint32_t> computedChecksum;

    [[nodiscard]] bool valid() const { return trouble == Trouble::none; }
};

/* Completes a partition whose save was interrupted, by the library's journal. Otherwise the journal's entry could later
 * undo what the tool writes. When it cannot be completed, the library cannot read the partition either. */
void completeSave(const Partition &partition);

/* Reads what the library would read, after completeSave(). It never waits for a FIFO, and reads no more bytes than a
 * partition has. */
PartitionState stateOf(const Partition &partition);

/* Throws a Failure unless the partition is valid. */
void requireValid(const Partition &partition);

/* The same for bytes that have not been written yet. */
PartitionState stateOfBytes(const Partition &partition, std::string_view bytes);

/* Bytes of a body, from an offset on. */
struct BodyChange {
    std::size_t offset;
    std::string bytes;
};

/* A change of a partition. The partition is valid, and locked as long as the object exists. */
class PartitionChange {
  public:
    /* Waits for the lock. Throws a Failure when the partition cannot be written or is not valid; nothing was changed.
     */
    explicit PartitionChange(const Partition &partition);

    /* Rewrites the partition in place, once, flushes it and reads it back. Returns why that was not possible; empty
     * after a success. */
    [[nodiscard]] std::string write(const std::vector<BodyChange> &changes) const;

    /* Restores the partition as it was. Returns false when that was not possible. */
    [[nodiscard]] bool putBack() const;

  private:
    [[nodiscard]] std::string rewrite(const std::string &bytes) const;
    [[nodiscard]] std::string store(const std::string &bytes) const;

    const Partition &partition_;
    Fd file_;
    std::string before_;
};

/* Makes an erased partition in a file beside the old one, and renames it when it is complete. Throws a Failure; then
 * the old partition is unchanged. */
void makeFresh(const Partition &partition);

/* Makes these bytes the partition in the same way. */
void replacePartition(const Partition &partition, std::string_view bytes);

}  // namespace vosctl

#endif
