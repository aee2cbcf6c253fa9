/* SPDX-License-Identifier: MIT */
/* Whole files, read with one call and replaced with one call, under a lock on the file: one reader and one writer for
 * any file, the saved configuration and the syslog. Their differences are the table at the end. */
#ifndef VOS_FILE_STORE_H
#define VOS_FILE_STORE_H

#include <cstddef>
#include <span>

#include "../base/file.h"
#include "../base/log.h"

namespace vos {

/* A text of one of the stores: those of any file name the path first, those of the others do not. Without a text the
 * store does not look at what the text would tell. */
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

enum class FailedRead { ClosesThenLogs, UnlocksThenLogs, LogsThenEnds };
enum class Result { Zero, Count };

struct Store {
    FailureText missing; /* at trace level: a file that is not there is nothing unusual */
    FailureText open;
    FailureText lock;
    FailureText unlock;

    FailureText read;
    FailedRead failedRead;
    ReadCounts shortRead; /* without: a short read is no event */

    FailureText truncate; /* without: a failed truncation goes unnoticed, and the write goes ahead */
    FailureText write;
    bool failedWriteCloses; /* at once, before the lock would be released */
    WriteCounts shortWrite;
    bool flushed;
    Result result; /* what the end lines show and a write returns; a read always returns the count */
};

inline constexpr Store kAnyFile{
    .missing = "%s:file %s does not exist errno:%d(%s).",
    .open = "%s:open file %s failed errno:%d(%s).",
    .lock = "%s:lock file %s failed errno:%d(%s).",
    .unlock = "%s:unlock file %s failed errno:%d(%s).",
    .read = "%s:read file %s failed errno:%d(%s).",
    .failedRead = FailedRead::ClosesThenLogs,
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
    .failedRead = FailedRead::UnlocksThenLogs,
    .shortRead = "%s:read cfg file need %d but only read %d.",
    .truncate = nullptr,
    .write = "%s:write cfg file failed errno:%d(%s).",
    .failedWriteCloses = false,
    .shortWrite = "%s:write cfg file need %u but only write %d.",
    .flushed = true,
    .result = Result::Zero,
};

/* Not flushed: a log is saved often, and losing its end in a power cut is cheaper than wearing out the flash. */
inline constexpr Store kSyslogFile{
    .missing = "%s:syslog file does not exist errno:%d(%s).",
    .open = "%s:open syslog file failed errno:%d(%s).",
    .lock = "%s:lock syslog file failed errno:%d(%s).",
    .unlock = "%s:unlock syslog file failed errno:%d(%s).",
    .read = "%s:read syslog file failed errno:%d(%s).",
    .failedRead = FailedRead::LogsThenEnds,
    .shortRead = nullptr,
    .truncate = nullptr,
    .write = "%s:write syslog file failed errno:%d(%s).",
    .failedWriteCloses = false,
    .shortWrite = "%s:write syslog file need %u but only write %d.",
    .flushed = false,
    .result = Result::Count,
};

/* VOS_OK, or VOS_ERR_NO_FILE after the store's trace line. */
int32_t findFile(Caller me, const Store &store, const char *path);

/* Reads at most the buffer's size, from the file's start. Returns the number of bytes, or VOS_ERROR. */
int32_t readWhole(Caller me, const Store &store, const char *path, std::span<uint8_t> to);

/* Makes the bytes the file's content. Returns the store's result, or VOS_ERROR. */
int32_t replaceWhole(Caller me, const Store &store, const char *path, std::span<const uint8_t> from,
                     mode_t mode = kFileMode);

}  // namespace vos

#endif
