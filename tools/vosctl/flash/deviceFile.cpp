/* SPDX-License-Identifier: MIT */
#include "deviceFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <vosFile.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <limits>
#include <map>
#include <new>

#include "../base/failure.h"
#include "../base/fd.h"
#include "../base/interrupts.h"
#include "../terminal/report.h"

namespace vosctl {

namespace {

constexpr uint64_t kUnknown = std::numeric_limits<uint64_t>::max();
constexpr uint64_t kStatBlock = 512; /* the unit of st_blocks, whatever the file system */
constexpr const char *kMayRead = "run it as a user who may read it, such as root";
constexpr const char *kMayWrite =
    "see that the file system is mounted writable, and run it as a user who may write there, such as root";

bool isThere(const std::string &path, struct stat &status) { return stat(path.c_str(), &status) == 0; }

std::string directoryOf(const std::string &path) {
    const std::string parent = std::filesystem::path(path).parent_path();
    return parent.empty() ? "." : parent;
}

/* The directory of a path, or the nearest one above it that exists. */
std::string existingDirectory(const std::string &path) {
    struct stat status {};
    std::string directory = directoryOf(path);
    while (!isThere(directory, status) && directoryOf(directory) != directory) directory = directoryOf(directory);
    return directory;
}

/* The space that a file system has for one file. */
struct Space {
    std::string directory;
    dev_t device = 0;
    uint64_t free = kUnknown;
    uint64_t occupied = 0; /* bytes that the file uses now */
    uint64_t unit = 1;     /* bytes of a block */
};

Space spaceFor(const std::string &path) {
    Space space{existingDirectory(path)};
    struct statvfs about {};
    struct stat status {};
    if (isThere(path, status) && S_ISREG(status.st_mode))
        space.occupied = static_cast<uint64_t>(status.st_blocks) * kStatBlock;
    if (isThere(space.directory, status)) space.device = status.st_dev;
    if (statvfs(space.directory.c_str(), &about) != 0 || about.f_blocks == 0 || about.f_frsize == 0) return space;
    space.free = (geteuid() == 0 ? about.f_bfree : about.f_bavail) * about.f_frsize;
    space.unit = about.f_frsize;
    return space;
}

std::string readAll(const Fd &file, const std::string &path, uint64_t size) {
    std::string content(size, '\0');
    std::size_t got = 0;
    while (got < content.size()) {
        const ssize_t count = pread(file.get(), content.data() + got, content.size() - got, static_cast<off_t>(got));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw Failure(path + " cannot be read: " + strerror(errno), "see whether the flash is worn out");
        if (count == 0) break;
        got += static_cast<std::size_t>(count);
    }
    content.resize(got);
    return content;
}

/* Another program locks the file only while it reads or writes. A wait that short is not reported. */
bool isFreeSoon(const Fd &file, int how) {
    constexpr timespec kPause{0, 20'000'000};
    constexpr int kTries = 25; /* half a second */
    for (int tries = 0; tries < kTries; ++tries) {
        if (flock(file.get(), how | LOCK_NB) == 0 || errno != EWOULDBLOCK) return true;
        nanosleep(&kPause, nullptr);
    }
    return false;
}

/* The errno may be that of an earlier step which was allowed to fail, such as opening a version file that does not
 * exist. */
bool isOfWriting(int error) {
    constexpr int kErrors[] = {ENOSPC, EDQUOT, EFBIG, EIO, EROFS, EACCES, EPERM, ENOMEM};
    return std::find(std::begin(kErrors), std::end(kErrors), error) != std::end(kErrors);
}

bool writeAll(const Fd &file, std::string_view rest) {
    while (!rest.empty()) {
        const ssize_t count = write(file.get(), rest.data(), rest.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        rest.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

}  // namespace

void requireRegularFile(const std::string &path) {
    struct stat status {};
    if (!isThere(path, status) || S_ISREG(status.st_mode)) return;
    throw Failure(path + (S_ISDIR(status.st_mode) ? " is a directory" : " is no regular file"),
                  "see what is at this path, and remove it");
}

bool hasJournal() { return szVosJournalDir != nullptr && *szVosJournalDir != '\0'; }

void awaitLock(const std::string &path, int how) {
    const Fd file{open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)};
    if (!file || isFreeSoon(file, how)) return;
    fprintf(stderr, "vosctl: waiting for %s, which another program has locked; Ctrl-C ends the waiting\n",
            printable(path).c_str());
    while (flock(file.get(), how) != 0 && errno == EINTR) continue;
}

/* A program that was interrupted while it saved has left the new content in the journal. The library completes the file
 * before it returns the size. Otherwise a torn file would be shown, and the entry could later undo what the tool
 * writes. */
void completeSave(const std::string &path) {
    if (!hasJournal()) return;
    awaitLock(path, LOCK_SH);
    struct stat status {};
    uint32_t size = 0;
    if (vosFileSizeGet(path.c_str(), &size) == VOS_OK || !isThere(path, status)) return;
    throw Failure(path +
                      " may be a part of what was saved: its save was interrupted and cannot be completed from the " +
                      "journal " + szVosJournalDir,
                  "run it again with --verbose to see why, as a user who may read the journal, such as root");
}

std::optional<std::string> readDeviceFile(const std::string &path, uint64_t limit) {
    requireRegularFile(path);
    completeSave(path);
    const Fd file{open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)};
    if (!file && errno == ENOENT) return {};
    if (!file) throw Failure(path + " cannot be opened: " + strerror(errno), kMayRead);
    awaitLock(path, LOCK_SH);
    flock(file.get(), LOCK_SH);
    struct stat status {};
    fstat(file.get(), &status);
    const auto size = static_cast<uint64_t>(status.st_size);
    if (size > limit) {
        throw Failure(
            path + " has " + std::to_string(size) + " bytes, and at most " + std::to_string(limit) + " are read",
            "see what has written it");
    }
    try {
        return readAll(file, path, size);
    } catch (const std::bad_alloc &) {
        throw Failure("there is not enough memory for " + path + ", which has " + std::to_string(size) + " bytes",
                      "end other programs");
    }
}

DeviceFile::DeviceFile(std::string path) : path_(std::move(path)), content_(readDeviceFile(path_)) {
    struct stat status {};
    if (isThere(path_, status)) mode_ = status.st_mode & 07777;
}

void requireWritable(const std::string &path) {
    const Fd file{open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)};
    if (file) return;
    if (errno == ENOENT && access(existingDirectory(path).c_str(), W_OK | X_OK) == 0) return;
    throw Failure(path + " cannot be written: " + strerror(errno) + ", and nothing was changed", kMayWrite);
}

void requireRoomFor(const std::vector<Need> &needs) {
    struct Sum {
        Space space;
        uint64_t needed = 0;
    };
    std::map<dev_t, Sum> sums;
    for (const Need &need : needs) {
        const Space space = spaceFor(need.path);
        Sum &sum = sums[space.device];
        const uint64_t occupied = sum.space.occupied + space.occupied;
        sum.space = space;
        sum.space.occupied = occupied;
        sum.needed += (need.bytes + space.unit - 1) / space.unit * space.unit;
    }
    for (const auto &[device, sum] : sums) {
        if (sum.space.free == kUnknown || sum.needed <= sum.space.free + sum.space.occupied) continue;
        throw Failure(sum.space.directory + " has room for " + std::to_string(sum.space.free + sum.space.occupied) +
                          " bytes, and " + std::to_string(sum.needed) + " are needed; nothing was changed",
                      "make room there");
    }
}

uint64_t DeviceFile::room() const {
    const Space space = spaceFor(path_);
    return space.free == kUnknown ? kUnknown : space.free + space.occupied;
}

void DeviceFile::requireTakes(uint64_t bytes) const {
    requireWritable(path_);
    requireRoomFor({{path_, bytes}});
}

bool DeviceFile::holds(std::string_view bytes) const {
    try {
        const auto now = readDeviceFile(path_);
        return now && *now == bytes;
    } catch (const Failure &) {
        return false;
    }
}

bool DeviceFile::rewrite() const {
    const Fd file{open(path_.c_str(), O_WRONLY | O_CREAT | O_NONBLOCK | O_CLOEXEC, mode_)};
    if (!file) return false;
    flock(file.get(), LOCK_EX);
    if (ftruncate(file.get(), 0) != 0 || !writeAll(file, *content_)) return false;
    fchmod(file.get(), mode_);
    return fsync(file.get()) == 0;
}

bool DeviceFile::putBack() const {
    struct stat status {};
    if (!content_) return (unlink(path_.c_str()) == 0 || errno == ENOENT) && !isThere(path_, status);
    return holds(*content_) || (rewrite() && holds(*content_));
}

std::string shortfall(bool done, int error, const std::string &path, uint64_t wanted) {
    if (!done && isOfWriting(error)) return strerror(error);
    struct stat status {};
    const auto size = isThere(path, status) ? static_cast<uint64_t>(status.st_size) : 0;
    if (size == wanted) return "its bytes are not those that were written";
    return "only " + std::to_string(std::min(size, wanted)) + " of " + std::to_string(wanted) + " bytes arrived";
}

void replaceContent(const Replacement &wanted) {
    const DeviceFile &before = wanted.before;
    awaitLock(before.path(), LOCK_EX);
    const HeldSignals held{wanted.what + " was being saved"};
    errno = 0;
    const bool done = wanted.write();
    const int error = errno;
    if (before.holds(wanted.content)) return;
    const std::string why = shortfall(done, error, before.path(), wanted.content.size());
    const char *const one = before.content() ? "the one before is still there" : "none is there";
    const char *const now = before.putBack()   ? one
                            : before.content() ? "the one before is lost"
                                               : "a part of it is there";
    throw Failure(wanted.what + " could not be saved whole to " + before.path() + ": " + why + ", and " + now,
                  "see that the flash has room and can be written, and save it again");
}

}  // namespace vosctl
