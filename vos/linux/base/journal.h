/* SPDX-License-Identifier: MIT */
/* The journal: no target stays torn, which means half-written, after a power cut, a kill or a full flash. First the new
 * content is written into an entry, which is a file of its own. Then the target is written as without the journal. Then
 * the entry is removed. A process that opens a target which still has an entry completes the target.
 *
 * An entry is placed and removed under the exclusive lock of its target. A target that does not exist yet cannot be
 * locked: it is created under the lock of the journal's directory. Order of the locks: directory, then target. */
#ifndef VOS_BASE_JOURNAL_H
#define VOS_BASE_JOURNAL_H

#include <sys/types.h>

#include "caller.h"
#include "journalEntry.h"
#include "uniqueFd.h"

namespace vos::journal {

/* The file or partition that is saved, and the function that saves it. */
struct Target {
    Caller me;
    const char *directory; /* of the journal; null or empty: there is none */
    const char *path;
    uint32_t partition = 0;                   /* size of a partition; 0 for a file */
    bool (*valid)(Bytes partition) = nullptr; /* whether the bytes of a partition are a valid one */

    /* False for files of the kernel, too: they store nothing that could be completed later. */
    [[nodiscard]] bool on() const;
    [[nodiscard]] Kind kind() const { return partition == 0 ? Kind::File : Kind::Partition; }
};

/* Opens the directory of the journal. It is made if it does not exist, and flushed then. */
UniqueFd openDirectory(const char *path);

enum class Settled {
    Nothing, /* there was no entry */
    Changed, /* the target was completed, or the entry was removed */
    Kept,    /* there is an entry, but it is not one of this target, and it cannot be removed */
    Failed   /* the entry remains and the target may be torn; logged */
};

/* Completes the target if it has an entry. The caller has locked the target through this descriptor, shared or
 * exclusive; when there is an entry the lock becomes exclusive. Without an entry this is one system call. */
Settled settle(const Target &target, const UniqueFd &locked);

Settled settle(const Target &target, const Names &names, const UniqueFd &locked);

/* The same for calls that take no lock. Also removes the entry of a target that does not exist. */
Settled settle(const Target &target);

/* Removes the entry of a target that does not exist. */
void forget(const Target &target);

/* Completes the target and holds a shared lock on it, for calls that ask its size before they lock it. */
class Hold {
  public:
    explicit Hold(const Target &target);
    [[nodiscard]] bool failed() const { return failed_; }

  private:
    UniqueFd file_;
    bool failed_ = false;
};

/* One save: open() or a caller's own open, the caller's lock, protect(), the caller's writing and flushing, finish().
 */
class Save {
  public:
    Save(const Target &target, Bytes content);

    /* Opens the target to read and write. A target that does not exist is created when its entry is in place. */
    UniqueFd open(mode_t mode);
    /* Whether open() has created the target. Its entry is in place then. */
    [[nodiscard]] bool creating() const { return creating_; }
    /* Whether open() failed in the journal. It has logged the failure then. */
    [[nodiscard]] bool refused() const { return refused_; }

    /* Places the entry. False when that failed: it has been logged, and the target must not be touched. `previous` is
     * the CRC-32 of what the target holds, if the caller has called settle() and has read the target. */
    bool protect(const UniqueFd &locked, std::optional<uint32_t> previous = {});

    /* Removes the entry, if the target was written and flushed whole. Otherwise the next opener completes the target.
     */
    void finish(bool whole);

  private:
    bool refuse();
    bool openJournal();
    bool createEntry(UniqueFd &file);
    bool writeEntry(const UniqueFd &file, std::optional<uint32_t> previous);
    bool place(std::optional<uint32_t> previous);
    bool roomFor(const UniqueFd &locked);
    bool withdraw();
    bool placed();
    UniqueFd create(mode_t mode);

    const Target &target_;
    Bytes content_;
    Names names_;
    UniqueFd directory_;
    bool creating_ = false; /* the directory is locked, and the entry is in place */
    bool refused_ = false;
    bool protected_ = false;
};

}  // namespace vos::journal

#endif
