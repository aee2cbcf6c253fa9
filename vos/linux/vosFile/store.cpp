/* SPDX-License-Identifier: MIT */
/* The one reader and the one writer of whole files. */
#include "store.h"

#include <sys/file.h>
#include <unistd.h>

#ifndef VOS_JOURNAL_DIR
#define VOS_JOURNAL_DIR nullptr
#endif
constinit const char *szVosJournalDir = VOS_JOURNAL_DIR;

namespace vos {

namespace {

/* One operation on one file of a store. */
struct Work {
    Caller me;
    const Store &store;
    const char *path;

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    template <class... Args>
    void say(uint32_t level, const StoreText<Args...> &text, Args... args) const {
        if (!logged(level)) return;
        if (text.namesPath)
            vosDebugPrintf(level, text.text, me.name, ShownOutside{outside(path)}.get(), args...);
        else
            vosDebugPrintf(level, text.text, me.name, args...);
    }
#pragma GCC diagnostic pop

    void failed(uint32_t level, const FailureText &text) const {
        const ErrnoKeeper keep;
        say(level, text, errno, static_cast<const char *>(strerror(errno)));
    }
    void failed(const FailureText &text) const { failed(VOS_DEBUG_ERROR, text); }

    /* A failed lock or unlock is only logged: a device whose file system cannot lock must still start. */
    void lock(const UniqueFd &file, int how) const {
        if (flock(file.get(), how) != 0) failed(store.lock);
    }
    void unlock(const UniqueFd &file) const {
        const ErrnoKeeper keep;
        if (flock(file.get(), LOCK_UN) != 0) failed(store.unlock);
    }
};

journal::Target targetOf(Caller me, const char *path) { return {me, szVosJournalDir, path}; }

/* The caller has locked the file. */
int32_t settleLocked(Caller me, const char *path, const UniqueFd &file) {
    const auto target = targetOf(me, path);
    return target.on() && journal::settle(target, file) == journal::Settled::Failed ? VOS_ERROR : VOS_OK;
}

int32_t readFailed(const Work &work, UniqueFd file) {
    const FailureText &text = work.store.read;
    switch (work.store.failedRead) {
        case FailedRead::CloseAndLog:
            file.reset();
            work.failed(text);
            break;
        case FailedRead::UnlockCloseAndLog:
            work.unlock(file);
            file.reset();
            work.failed(text);
            break;
        case FailedRead::LogUnlockCloseAndEnd:
            work.failed(text);
            work.unlock(file);
            file.reset();
            return ended(work.me, VOS_ERROR);
    }
    return VOS_ERROR;
}

int32_t writeFailed(const Work &work, UniqueFd &file, const FailureText &text) {
    if (work.store.failedWriteCloses) file.reset();
    work.failed(text);
    return VOS_ERROR;
}

struct Written {
    int32_t result;
    bool whole;     /* every byte was written */
    bool truncated; /* nothing of the old content is left behind them */
};

Written writeAll(const Work &work, UniqueFd &file, std::span<const uint8_t> from) {
    const Store &store = work.store;
    const bool truncated = ftruncate(file.get(), 0) == 0;
    if (!truncated && store.truncate) return {writeFailed(work, file, store.truncate), false, false};
    /* The kernel writes at most 0x7FFFF000 bytes in one call, so the count fits. */
    const auto count = static_cast<int32_t>(write(file.get(), from.data(), from.size()));
    if (count < 0) return {writeFailed(work, file, store.write), false, truncated};
    const bool whole = static_cast<uint32_t>(count) == from.size();
    if (!whole) work.say(VOS_DEBUG_ERROR, store.shortWrite, static_cast<uint32_t>(from.size()), count);
    return {store.result == Result::Count ? count : VOS_OK, whole, truncated};
}

/* With the journal every save is flushed, and the lock is kept until the entry is removed. Without the lock another
 * process would find the entry and treat this save as an interrupted one. A failed truncation, which some stores
 * ignore, leaves the end of a longer old content; so it is tried once more here. */
int32_t replaceWithJournal(const Work &work, const journal::Target &target, std::span<const uint8_t> from,
                           mode_t mode) {
    journal::Save save{target, from};
    UniqueFd file = save.open(mode);
    if (!file) {
        if (!save.refused()) work.failed(work.store.open);
        return VOS_ERROR;
    }
    work.lock(file, LOCK_EX);
    if (!save.protect(file)) return VOS_ERROR;
    const Written written = writeAll(work, file, from);
    const ErrnoKeeper keep; /* vosFileAppWrite() logs errno of the failed call */
    const bool sized = written.truncated || ftruncate(file.get(), static_cast<off_t>(from.size())) == 0;
    const bool flushed = fsync(file.get()) == 0 && syncfs(file.get()) == 0;
    save.finish(written.whole && sized && flushed);
    work.unlock(file);
    file.reset();
    return ended(work.me, written.result);
}

}  // namespace

int32_t settle(Caller me, const char *path) {
    const auto target = targetOf(me, path);
    return target.on() && journal::settle(target) == journal::Settled::Failed ? VOS_ERROR : VOS_OK;
}

void forgetSave(Caller me, const char *path) {
    if (const auto target = targetOf(me, path); target.on()) journal::forget(target);
}

int32_t findFile(Caller me, const Store &store, const char *path) {
    if (exists(path)) return VOS_OK;
    Work{me, store, path}.failed(VOS_DEBUG_TRACE, store.missing);
    forgetSave(me, path);
    return VOS_ERR_NO_FILE;
}

int32_t readWhole(Caller me, const Store &store, const char *path, std::span<uint8_t> to, const SteadyFile *steady) {
    const Work work{me, store, path};
    UniqueFd file = openFile(path, O_RDONLY);
    if (!file) {
        work.failed(store.open);
        return VOS_ERROR;
    }
    work.lock(file, LOCK_SH);
    if (steady == nullptr && settleLocked(me, path, file) != VOS_OK) return VOS_ERROR;
    const auto count = static_cast<int32_t>(read(file.get(), to.data(), to.size()));
    if (count < 0) return readFailed(work, std::move(file));
    if (store.shortRead && static_cast<uint32_t>(count) < to.size())
        work.say(VOS_DEBUG_ERROR, store.shortRead, static_cast<int32_t>(to.size()), count);
    work.unlock(file);
    file.reset();
    static_cast<void>(ended(me, store.result == Result::Count ? count : VOS_OK));
    return count;
}

/* vosFileWrite() closes the file when a truncation or a write fails, and then still unlocks and flushes. These calls
 * are made on descriptor -1: they fail and log as on the closed number, and never reach a file that another thread has
 * opened meanwhile under that number. */
int32_t replaceWhole(Caller me, const Store &store, const char *path, std::span<const uint8_t> from, mode_t mode) {
    const Work work{me, store, path};
    if (const auto target = targetOf(me, path); target.on()) return replaceWithJournal(work, target, from, mode);
    UniqueFd file = openFile(path, O_RDWR | O_CREAT, mode);
    if (!file) {
        work.failed(store.open);
        return VOS_ERROR;
    }
    work.lock(file, LOCK_EX);
    const Written written = writeAll(work, file, from);
    const ErrnoKeeper keep; /* vosFileAppWrite() logs errno of the failed call */
    work.unlock(file);
    if (store.flushed) {
        fsync(file.get());
        syncfs(file.get());
    }
    file.reset();
    return ended(me, written.result);
}

}  // namespace vos
