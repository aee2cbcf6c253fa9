/* SPDX-License-Identifier: MIT */
/* Whole files, read with one call and replaced with one call, under a lock on the file: one reader and one writer for
 * any file, the saved configuration and the syslog. Their differences are the table at the end. */
#ifndef VOS_FILE_STORE_H
#define VOS_FILE_STORE_H

#include <cstddef>
#include <optional>
#include <span>

#include "../base/file.h"
#include "../base/journal.h"
#include "../base/log.h"
#include "vosFile.h"

namespace vos {

/* A log text of a store. vosFileRead() and vosFileWrite() show the path in their texts, the others do not; which it is
 * follows from the number of conversions. Where a store has no text for an event, the event is not examined. */
template <class... Args>
struct StoreText {
    const char *text = nullptr;
    bool namesPath = false;
    consteval StoreText(std::nullptr_t) {}
    consteval StoreText(const char *t) : text(t), namesPath(logtext::matches<const char *, Outside, Args...>(t)) {
        if (!namesPath && !logtext::matches<const char *, Args...>(t)) logtext::conversionsAndArgumentsDiffer();
    }
    explicit operator bool() const { return text != nullptr; }
};

using FailureText = StoreText<int, const char *>; /* errno and its text */
using ReadCounts = StoreText<int32_t, int32_t>;   /* wanted, got */
using WriteCounts = StoreText<uint32_t, int32_t>; /* wanted, got */

/* What follows a failed read, in this order. "End" is the trace line at the end of the call. */
enum class FailedRead { CloseAndLog, UnlockCloseAndLog, LogUnlockCloseAndEnd };
enum class Result { Zero, Count };

struct Store {
    FailureText missing; /* at trace level: a file that is not there is nothing unusual */
    FailureText open;
    FailureText lock;
    FailureText unlock;

    FailureText read;
    FailedRead failedRead;
    ReadCounts shortRead; /* null: a short read is not logged */

    FailureText truncate; /* null: a failed truncation is ignored, and the write follows */
    FailureText write;
    bool failedWriteCloses; /* the file is closed before the failure is logged */
    WriteCounts shortWrite;
    bool flushed;
    Result result; /* shown in the end lines and returned by a write; a read always returns the count */
};

inline constexpr Store kAnyFile{
    .missing = "%s:file %s does not exist errno:%d(%s).",
    .open = "%s:open file %s failed errno:%d(%s).",
    .lock = "%s:lock file %s failed errno:%d(%s).",
    .unlock = "%s:unlock file %s failed errno:%d(%s).",
    .read = "%s:read file %s failed errno:%d(%s).",
    .failedRead = FailedRead::CloseAndLog,
    .shortRead = nullptr,
    .truncate = "%s:ftruncate file %s failed errno:%d(%s).",
    .write = "%s:write file %s failed errno:%d(%s).",
    .failedWriteCloses = true,
    .shortWrite = "%s:write file %s need %u but only write %d.",
    .flushed = true,
    .result = Result::Zero,
};

inline constexpr Store kConfigurationFile{
    .missing = "%s:cfg file does not exist errno:%d(%s).",
    .open = "%s:open cfg file failed errno:%d(%s).",
    .lock = "%s:lock cfg file failed errno:%d(%s).",
    .unlock = "%s:unlock cfg file failed errno:%d(%s).",
    .read = "%s:read cfg file failed errno:%d(%s).",
    .failedRead = FailedRead::UnlockCloseAndLog,
    .shortRead = "%s:read cfg file need %d but only read %d.",
    .truncate = nullptr,
    .write = "%s:write cfg file failed errno:%d(%s).",
    .failedWriteCloses = false,
    .shortWrite = "%s:write cfg file need %u but only write %d.",
    .flushed = true,
    .result = Result::Zero,
};

/* Not flushed, because a log is saved often and each flush wears out the flash. A power cut soon after a save can leave
 * an empty file, since the file is truncated first. */
inline constexpr Store kSyslogFile{
    .missing = "%s:syslog file does not exist errno:%d(%s).",
    .open = "%s:open syslog file failed errno:%d(%s).",
    .lock = "%s:lock syslog file failed errno:%d(%s).",
    .unlock = "%s:unlock syslog file failed errno:%d(%s).",
    .read = "%s:read syslog file failed errno:%d(%s).",
    .failedRead = FailedRead::LogUnlockCloseAndEnd,
    .shortRead = nullptr,
    .truncate = nullptr,
    .write = "%s:write syslog file failed errno:%d(%s).",
    .failedWriteCloses = false,
    .shortWrite = "%s:write syslog file need %u but only write %d.",
    .flushed = false,
    .result = Result::Count,
};

/* Returns VOS_OK if the path can be reached. Else writes the store's trace line and returns VOS_ERR_NO_FILE. */
int32_t findFile(Caller me, const Store &store, const char *path);

/* Completes a file whose save was interrupted, for readers that do not lock it. VOS_ERROR when that failed, which has
 * been logged: the file may be torn. Without the journal nothing happens. */
int32_t settle(Caller me, const char *path);

/* Removes the entry of a file that does not exist any more, so that no later save is completed from it. */
void forgetSave(Caller me, const char *path);

/* With the journal: completes the file, and locks it so that no other process saves it meanwhile. Without the journal:
 * does nothing. False when the file may be torn. */
class SteadyFile {
  public:
    SteadyFile(Caller me, const char *path) {
        const journal::Target target{me, szVosJournalDir, path};
        if (target.on()) hold_.emplace(target);
    }
    explicit operator bool() const { return !hold_ || !hold_->failed(); }

  private:
    std::optional<journal::Hold> hold_;
};

/* Reads at most the buffer's size, from the file's start. Returns the number of bytes, or VOS_ERROR. A caller that
 * holds a SteadyFile passes it: the file is complete then, and completing it here would wait for the caller's own lock.
 */
int32_t readWhole(Caller me, const Store &store, const char *path, std::span<uint8_t> to,
                  const SteadyFile *steady = nullptr);

/* Replaces the file's content by the bytes. Returns the store's result, or VOS_ERROR with errno of the failed call. */
int32_t replaceWhole(Caller me, const Store &store, const char *path, std::span<const uint8_t> from,
                     mode_t mode = kFileMode);

}  // namespace vos

#endif
