/* SPDX-License-Identifier: MIT */
/* The recovering side of the journal. An entry is never trusted: it is read as bytes from outside, and it is only ever
 * applied to the target that its reader has opened. */
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "block.h"
#include "file.h"
#include "journal.h"
#include "log.h"
#include "text.h"

namespace vos::journal {

namespace {

/* Content is read and compared in pieces of this size. A partition fits into one. */
constexpr uint32_t kPiece = 16 * 1024;

enum class Verdict { Complete, SavedLater, Invalid, Failed, AnotherFile };

Settled failed(const Target &target) {
    errorErrno(target.me, "%s:file %s cannot be restored from the journal errno:%d(%s).", outside(target.path));
    return Settled::Failed;
}

/* Reads exactly these bytes. A shorter file is no error, but not enough. */
bool readAt(const UniqueFd &file, std::span<uint8_t> to, uint64_t offset, bool &error) {
    while (!to.empty()) {
        const ssize_t count = pread(file.get(), to.data(), to.size(), static_cast<off_t>(offset));
        error = error || count < 0;
        if (count <= 0) return false;
        to = to.subspan(static_cast<std::size_t>(count));
        offset += static_cast<uint64_t>(count);
    }
    return true;
}

bool writeAt(const UniqueFd &file, Bytes from, uint64_t offset) {
    while (!from.empty()) {
        const ssize_t count = pwrite(file.get(), from.data(), from.size(), static_cast<off_t>(offset));
        if (count < 0) return false;
        if (count == 0) {
            errno = ENOSPC;
            return false;
        }
        from = from.subspan(static_cast<std::size_t>(count));
        offset += static_cast<uint64_t>(count);
    }
    return true;
}

class Recovery {
  public:
    Recovery(const Target &target, const Names &names) : target_(target), names_(names) {}

    Settled run(const UniqueFd &locked);
    Settled remove();

  private:
    [[nodiscard]] uint64_t contentOffset() const { return kHeaderSize + header_.pathLength; }
    std::span<uint8_t> mine(std::size_t size) { return {block_.get(), size}; }
    std::span<uint8_t> theirs(std::size_t size) { return {&block_[kPiece], size}; }

    Verdict openEntry();
    Verdict readHeader();
    Verdict readContent();
    Verdict compareFile();
    Verdict comparePartition();
    Verdict compare(const UniqueFd &locked);
    bool complete();
    bool removeEntry();
    Settled finish(Verdict verdict);

    const Target &target_;
    const Names &names_;
    Block block_; /* two pieces: one of the entry, one of the target */
    UniqueFd entry_;
    UniqueFd file_;
    uint64_t entrySize_ = 0;
    uint64_t fileSize_ = 0;
    Header header_{};
    uint32_t sum_ = 0;
    uint64_t from_ = 0; /* from here on the target has to be written */
};

/* Neither follows a link nor waits for the other end of a FIFO. */
Verdict Recovery::openEntry() {
    entry_.reset(open(names_.entryPath(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!entry_) return errno == ELOOP || errno == ENXIO ? Verdict::Invalid : Verdict::Failed;
    struct stat state;
    if (fstat(entry_.get(), &state) != 0) return Verdict::Failed;
    entrySize_ = static_cast<uint64_t>(state.st_size);
    return S_ISREG(state.st_mode) ? Verdict::Complete : Verdict::Invalid;
}

Verdict Recovery::readHeader() {
    HeaderBytes bytes;
    bool error = false;
    if (!readAt(entry_, bytes, 0, error)) return error ? Verdict::Failed : Verdict::Invalid;
    const auto header = decode(bytes);
    const Bytes path = names_.pathBytes();
    if (!header || header->kind != target_.kind() || header->pathLength != path.size()) return Verdict::Invalid;
    header_ = *header;
    if (entrySize_ != contentOffset() + header_.contentLength) return Verdict::Invalid;
    if (target_.partition != 0 && header_.contentLength != target_.partition) return Verdict::Invalid;
    const auto recorded = mine(path.size());
    if (!readAt(entry_, recorded, kHeaderSize, error)) return error ? Verdict::Failed : Verdict::Invalid;
    sum_ = checksum(headerChecksum(bytes), recorded);
    return std::ranges::equal(recorded, path) ? Verdict::Complete : Verdict::Invalid;
}

Verdict Recovery::readContent() {
    bool error = false;
    for (uint64_t at = 0; at < header_.contentLength; at += kPiece) {
        const auto piece = mine(std::min<uint64_t>(kPiece, header_.contentLength - at));
        if (!readAt(entry_, piece, contentOffset() + at, error)) return error ? Verdict::Failed : Verdict::Invalid;
        sum_ = checksum(sum_, piece);
    }
    return sum_ == header_.checksum ? Verdict::Complete : Verdict::Invalid;
}

/* A file is truncated and written from its start, so an interrupted save leaves the beginning of its content, or
 * nothing. A file system can also leave zeros where the data did not reach the flash. Everything else is another save.
 */
Verdict Recovery::compareFile() {
    if (fileSize_ > header_.contentLength) return Verdict::SavedLater;
    from_ = fileSize_;
    bool error = false;
    for (uint64_t at = 0; at < fileSize_; at += kPiece) {
        const std::size_t size = std::min<uint64_t>(kPiece, fileSize_ - at);
        const auto wanted = mine(size), found = theirs(size);
        if (!readAt(entry_, wanted, contentOffset() + at, error) || !readAt(file_, found, at, error))
            return Verdict::Failed;
        for (std::size_t i = 0; i < size; ++i) {
            if (found[i] == wanted[i]) continue;
            if (found[i] != 0) return Verdict::SavedLater;
            from_ = std::min(from_, at + i);
        }
    }
    return Verdict::Complete;
}

/* A partition is rewritten in place, and its own checksum shows whether it is torn. A valid one is left alone, unless
 * it is still exactly what the interrupted save had found. */
Verdict Recovery::comparePartition() {
    const auto wanted = mine(target_.partition), found = theirs(target_.partition);
    bool error = false;
    if (!readAt(entry_, wanted, contentOffset(), error)) return Verdict::Failed;
    if (!readAt(file_, found, 0, error)) return error ? Verdict::Failed : Verdict::Complete;
    if (std::ranges::equal(wanted, found)) {
        from_ = target_.partition;
        return Verdict::Complete;
    }
    const bool untouched = header_.previous == checksum(0, found);
    return untouched || !target_.valid(found) ? Verdict::Complete : Verdict::SavedLater;
}

/* The path may name another file by now, which this caller has not locked. */
Verdict Recovery::compare(const UniqueFd &locked) {
    file_ = openFile(target_.path, O_RDWR);
    struct stat state, lockedState;
    if (!file_ || fstat(file_.get(), &state) != 0 || fstat(locked.get(), &lockedState) != 0) return Verdict::Failed;
    if (state.st_ino != lockedState.st_ino || state.st_dev != lockedState.st_dev) return Verdict::AnotherFile;
    fileSize_ = static_cast<uint64_t>(state.st_size);
    return target_.partition == 0 ? compareFile() : comparePartition();
}

bool Recovery::complete() {
    bool error = false;
    for (uint64_t at = from_; at < header_.contentLength; at += kPiece) {
        const auto piece = mine(std::min<uint64_t>(kPiece, header_.contentLength - at));
        if (!readAt(entry_, piece, contentOffset() + at, error) || !writeAt(file_, piece, at)) return false;
    }
    return fsync(file_.get()) == 0 && syncfs(file_.get()) == 0;
}

/* The removal is flushed, so that no later cut brings the entry back. */
bool Recovery::removeEntry() {
    const UniqueFd directory = openFile(target_.directory, O_RDONLY | O_DIRECTORY);
    if (!directory || unlinkat(directory.get(), names_.entry(), 0) != 0) return false;
    fsync(directory.get());
    return true;
}

Settled Recovery::finish(Verdict verdict) {
    const Caller me = target_.me;
    if (verdict == Verdict::Complete && !complete()) verdict = Verdict::Failed;
    if (verdict == Verdict::Failed) return failed(target_);
    if (verdict == Verdict::AnotherFile) return Settled::Kept;
    const bool removed = removeEntry();
    const auto path = outside(target_.path);
    if (verdict == Verdict::Complete)
        error(me, "%s:file %s restored from the journal.", path);
    else if (verdict == Verdict::SavedLater)
        error(me, "%s:journal entry of file %s is not used, the file is another one.", path);
    else
        error(me, "%s:journal entry of file %s is not valid.", path);
    return removed ? Settled::Changed : Settled::Kept;
}

Settled Recovery::run(const UniqueFd &locked) {
    /* If a signal has interrupted this lock, another process may still be saving the target. */
    if (flock(locked.get(), LOCK_EX) != 0) return failed(target_);
    block_ = allocate(2 * kPiece);
    if (block_ == nullptr) return failed(target_);
    Verdict verdict = openEntry();
    if (verdict == Verdict::Failed && errno == ENOENT) return Settled::Changed; /* another process has completed it */
    if (verdict == Verdict::Complete) verdict = readHeader();
    if (verdict == Verdict::Complete) verdict = readContent();
    if (verdict == Verdict::Complete) verdict = compare(locked);
    return finish(verdict);
}

Settled Recovery::remove() { return removeEntry() ? Settled::Changed : Settled::Kept; }

/* Whether a file has the entry's name. A failure other than "no such file" is logged. */
Settled look(const Target &target, const Names &names) {
    if (!names.fit()) return Settled::Nothing;
    struct stat state;
    if (lstat(names.entryPath(), &state) == 0) return Settled::Changed;
    return errno == ENOENT || errno == ENOTDIR ? Settled::Nothing : failed(target);
}

}  // namespace

bool Target::on() const {
    if (directory == nullptr || *directory == '\0' || path == nullptr) return false;
    const std::string_view text{path};
    return !startsWith(text, "/proc/") && !startsWith(text, "/sys/");
}

Settled settle(const Target &target, const UniqueFd &locked) {
    return settle(target, Names{target.directory, target.path}, locked);
}

Settled settle(const Target &target, const Names &names, const UniqueFd &locked) {
    const ErrnoKeeper keep;
    const Settled found = look(target, names);
    return found == Settled::Changed ? Recovery{target, names}.run(locked) : found;
}

Settled settle(const Target &target) {
    const ErrnoKeeper keep;
    const Names names{target.directory, target.path};
    if (const Settled found = look(target, names); found != Settled::Changed) return found;
    const UniqueFd file = openFile(target.path, O_RDONLY);
    if (file) return Recovery{target, names}.run(file);
    if (errno != ENOENT) return failed(target);
    forget(target);
    return Settled::Nothing;
}

/* A process that creates the target places the entry first. It keeps the directory locked until the target exists. */
void forget(const Target &target) {
    const ErrnoKeeper keep;
    const Names names{target.directory, target.path};
    struct stat state;
    if (!names.fit() || lstat(names.entryPath(), &state) != 0) return;
    const UniqueFd directory = openFile(target.directory, O_RDONLY | O_DIRECTORY);
    if (!directory || flock(directory.get(), LOCK_EX) != 0) return;
    if (access(target.path, F_OK) == 0 || errno != ENOENT) return;
    Recovery{target, names}.remove();
}

Hold::Hold(const Target &target) {
    const ErrnoKeeper keep;
    file_ = openFile(target.path, O_RDONLY);
    if (!file_) return;
    Settled settled = Settled::Changed;
    while (settled == Settled::Changed) {
        if (flock(file_.get(), LOCK_SH) != 0) break;
        settled = settle(target, file_);
        failed_ = settled == Settled::Failed;
    }
    if (settled == Settled::Kept) flock(file_.get(), LOCK_SH); /* settle() has made the lock exclusive */
    if (failed_) file_.reset();
}

}  // namespace vos::journal
