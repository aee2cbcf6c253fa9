/* SPDX-License-Identifier: MIT */
/* The saving side of the journal. */
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstdio>

#include "file.h"
#include "journal.h"
#include "log.h"

namespace vos::journal {

namespace {

constexpr mode_t kDirectoryMode = 0700;
constexpr mode_t kEntryMode = 0600;

/* Writes all pieces, in as many calls as the kernel needs. */
bool writeAll(const UniqueFd &file, std::span<iovec> pieces) {
    while (!pieces.empty()) {
        const ssize_t count = writev(file.get(), pieces.data(), static_cast<int>(pieces.size()));
        if (count < 0) return false;
        auto left = static_cast<std::size_t>(count);
        while (!pieces.empty() && left >= pieces.front().iov_len) {
            left -= pieces.front().iov_len;
            pieces = pieces.subspan(1);
        }
        if (pieces.empty()) return true;
        if (count == 0) { /* no progress and no error: a full file system may return this */
            errno = ENOSPC;
            return false;
        }
        pieces.front().iov_base = static_cast<uint8_t *>(pieces.front().iov_base) + left;
        pieces.front().iov_len -= left;
    }
    return true;
}

iovec piece(Bytes bytes) { return {const_cast<uint8_t *>(bytes.data()), bytes.size()}; }

}  // namespace

UniqueFd openDirectory(const char *path) {
    constexpr int kFlags = O_RDONLY | O_DIRECTORY;
    UniqueFd directory = openFile(path, kFlags);
    if (directory || errno != ENOENT) return directory;
    if (mkdir(path, kDirectoryMode) != 0 && errno != EEXIST) return {};
    directory = openFile(path, kFlags);
    /* An entry on flash is worth nothing while its directory is not. */
    if (directory && syncfs(directory.get()) != 0) return {};
    return directory;
}

Save::Save(const Target &target, Bytes content)
    : target_(target), content_(content), names_(target.directory, target.path) {}

bool Save::refuse() {
    errorErrno(target_.me, "%s:journal of file %s failed errno:%d(%s), the file is not saved.", outside(target_.path));
    refused_ = true;
    return false;
}

bool Save::openJournal() {
    if (directory_) return true;
    if (!names_.fit()) {
        errno = ENAMETOOLONG;
        return false;
    }
    directory_ = openDirectory(target_.directory);
    return static_cast<bool>(directory_);
}

/* A file that an earlier save has left under the temporary name is removed first. */
bool Save::createEntry(UniqueFd &file) {
    constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    file.reset(openat(directory_.get(), names_.temporary(), kFlags, kEntryMode));
    if (file || errno != EEXIST) return static_cast<bool>(file);
    if (unlinkat(directory_.get(), names_.temporary(), 0) != 0) return false;
    file.reset(openat(directory_.get(), names_.temporary(), kFlags, kEntryMode));
    return static_cast<bool>(file);
}

bool Save::writeEntry(const UniqueFd &file, std::optional<uint32_t> previous) {
    const Bytes path = names_.pathBytes();
    HeaderBytes header = encode({.kind = target_.kind(),
                                 .pathLength = static_cast<uint32_t>(path.size()),
                                 .contentLength = static_cast<uint32_t>(content_.size()),
                                 .previous = previous,
                                 .checksum = 0});
    seal(header, checksum(checksum(headerChecksum(header), path), content_));
    std::array<iovec, 3> pieces{piece(header), piece(path), piece(content_)};
    return writeAll(file, pieces) && fsync(file.get()) == 0;
}

/* A temporary file that could not be written is removed, because the flash may be full of it. */
bool Save::place(std::optional<uint32_t> previous) {
    if (!openJournal()) return refuse();
    UniqueFd file;
    if (!createEntry(file)) return refuse();
    const bool written = writeEntry(file, previous);
    file.reset();
    const int directory = directory_.get();
    if (!written || renameat(directory, names_.temporary(), directory, names_.entry()) != 0) {
        const ErrnoKeeper keep;
        unlinkat(directory, names_.temporary(), 0);
        return refuse();
    }
    if (fsync(directory) == 0) return true;
    const ErrnoKeeper keep;
    unlinkat(directory, names_.entry(), 0);
    return refuse();
}

bool Save::placed() {
    struct stat state;
    return fstatat(directory_.get(), names_.entry(), &state, AT_SYMLINK_NOFOLLOW) == 0;
}

/* When two processes create the same target, the second one waits here and then finds the target. */
UniqueFd Save::create(mode_t mode) {
    if (!openJournal() || flock(directory_.get(), LOCK_EX) != 0) {
        refuse();
        return {};
    }
    UniqueFd file = openFile(target_.path, O_RDWR);
    if (file || errno != ENOENT) {
        const ErrnoKeeper keep;
        flock(directory_.get(), LOCK_UN);
        return file;
    }
    if (!place({})) return {};
    file = openFile(target_.path, O_RDWR | O_CREAT, mode);
    creating_ = static_cast<bool>(file);
    if (!file) {
        const ErrnoKeeper keep;
        unlinkat(directory_.get(), names_.entry(), 0);
    }
    return file;
}

UniqueFd Save::open(mode_t mode) {
    UniqueFd file = openFile(target_.path, O_RDWR);
    return file || errno != ENOENT ? std::move(file) : create(mode);
}

/* Whether the content fits into the target's file system, beside the entry. The space of the old content is not counted
 * as free, because a flash file system frees it only later. A file system that reports 0 blocks does not know its free
 * space. */
bool Save::roomFor(const UniqueFd &locked) {
    struct statvfs room;
    if (fstatvfs(locked.get(), &room) != 0) return false;
    if (room.f_blocks == 0) return true;
    constexpr uint64_t kOverhead = 16; /* a sixteenth for the headers of a flash file system, and one block */
    errno = ENOSPC;
    return room.f_bavail * room.f_frsize >= content_.size() + content_.size() / kOverhead + room.f_frsize;
}

/* Gives the save up before the target is changed: removes the entry, and the target that this save has created. */
bool Save::withdraw() {
    refuse();
    const ErrnoKeeper keep;
    if (creating_) unlink(target_.path);
    if (unlinkat(directory_.get(), names_.entry(), 0) == 0) fsync(directory_.get());
    return false;
}

/* Between its creation and its lock a target can be seen by another process, which then completes it from the entry and
 * removes the entry. */
bool Save::protect(const UniqueFd &locked, std::optional<uint32_t> previous) {
    struct stat state;
    if (fstat(locked.get(), &state) != 0) return refuse();
    if (!S_ISREG(state.st_mode)) return true;
    if (!creating_ || !placed()) {
        if (!previous && settle(target_, names_, locked) == Settled::Failed) return false;
        if (!place(previous)) return false;
    }
    if (!roomFor(locked)) return withdraw();
    if (creating_) flock(directory_.get(), LOCK_UN);
    protected_ = true;
    return true;
}

void Save::finish(bool whole) {
    const ErrnoKeeper keep;
    if (!protected_ || !whole) return;
    if (unlinkat(directory_.get(), names_.entry(), 0) == 0) fsync(directory_.get());
}

}  // namespace vos::journal
