/* SPDX-License-Identifier: MIT */
/* Changing and replacing a data partition. */
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vosFile.h>
#include <vosSysConfig.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "../base/failure.h"
#include "../base/interrupts.h"
#include "deviceFile.h"
#include "journal.h"
#include "outputFile.h"
#include "partition.h"
#include "store.h"

namespace vosctl {

namespace {

constexpr unsigned kFreshMode = 0644; /* the mode that the library uses */

std::string readWholePartition(const Fd &file, std::size_t size) {
    std::string bytes(size, '\0');
    const ssize_t count = pread(file.get(), bytes.data(), bytes.size(), 0);
    bytes.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return bytes;
}

bool isStillAt(const Fd &file, const char *path) {
    struct stat opened {};
    struct stat named {};
    return fstat(file.get(), &opened) == 0 && stat(path, &named) == 0 && opened.st_ino == named.st_ino &&
           opened.st_dev == named.st_dev;
}

/* Another program may replace the file by a new one while this one waits for the lock. Then the new file is opened. */
Fd openLocked(const Partition &partition) {
    const char *const path = *partition.path;
    for (;;) {
        requireRegularFile(path);
        completeSave(partition);
        Fd file{open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC)};
        if (!file) {
            throw Failure(std::string(path) + " cannot be written: " + strerror(errno) + ", and nothing was changed",
                          errno == ENOENT
                              ? "make the partition with \"vosctl partition init\""
                              : "see that the file system is mounted writable, and run it as a user who may "
                                "write there, such as root");
        }
        awaitLock(path, LOCK_EX);
        while (flock(file.get(), LOCK_EX) != 0 && errno == EINTR) continue;
        if (isStillAt(file, path)) return file;
    }
}

void putWord(std::string &bytes, std::size_t offset, uint32_t word) { memcpy(&bytes[offset], &word, sizeof word); }

/* As long as this object exists, the library uses another path for one partition, and /dev/null for the other one. */
class Elsewhere {
  public:
    Elsewhere(const Partition &partition, const std::string &path) {
        for (std::size_t index = 0; index < partitions().size(); ++index) {
            const char **const variable = partitions()[index].path;
            kept_[index] = *variable;
            *variable = &partitions()[index] == &partition ? path.c_str() : "/dev/null";
        }
    }
    ~Elsewhere() {
        for (std::size_t index = 0; index < partitions().size(); ++index) *partitions()[index].path = kept_[index];
    }
    Elsewhere(const Elsewhere &) = delete;
    Elsewhere &operator=(const Elsewhere &) = delete;

  private:
    const char *kept_[2];
};

/* The library makes a partition in a file that has none. Returns what went wrong; nothing after a success. */
std::string makeAt(const Partition &partition, const std::string &path) {
    const Elsewhere elsewhere{partition, path};
    vosSysConfigDataInit();
    const PartitionState state = stateOf(partition);
    if (state.bytes.size() < partition.bytes())
        return "only " + std::to_string(state.bytes.size()) + " of " + std::to_string(partition.bytes()) +
               " bytes could be written";
    return state.reason;
}

[[noreturn]] void couldNotBeMade(const Partition &partition, const std::string &mistake) {
    throw Failure(std::string("the ") + partition.name + " partition " + *partition.path +
                      " could not be made: " + mistake + ", and it is as it was",
                  "see that its directory exists, can be written and has room");
}

/* A new file gets the mode of the old one. With a mode that keeps this user out, the library could not open the new one
 * either, and nobody would see why. */
void requireAccess(const Partition &partition) {
    const char *const path = *partition.path;
    struct stat status {};
    if (stat(path, &status) != 0 || faccessat(AT_FDCWD, path, R_OK | W_OK, AT_EACCESS) == 0 || errno != EACCES) return;
    const std::string why = strerror(errno);
    char mode[8];
    snprintf(mode, sizeof mode, "%04o", status.st_mode & 07777);
    throw Failure(std::string("the ") + partition.name + " partition " + path +
                      " could not be made: its file has mode " + mode +
                      " and this user may not read and write it: " + why + ", and it is as it was",
                  "run it as a user who may, such as root, or change the mode");
}

}  // namespace

PartitionChange::PartitionChange(const Partition &partition)
    : partition_(partition), file_(openLocked(partition)), before_(readWholePartition(file_, partition.bytes())) {
    const PartitionState state = stateOfBytes(partition, before_);
    if (state.valid()) return;
    throw Failure(std::string("the ") + partition.name + " partition " + *partition.path +
                      " is not valid: " + state.reason + ", and nothing was changed",
                  std::string("see \"vosctl partition check ") + partition.name + "\"");
}

/* The reserved bytes of the header are kept, as when the library rewrites a partition. */
std::string PartitionChange::write(const std::vector<BodyChange> &changes) const {
    std::string bytes = before_;
    for (const BodyChange &change : changes)
        bytes.replace(kPartitionHeaderBytes + change.offset, change.bytes.size(), change.bytes);
    const std::string_view body = std::string_view(bytes).substr(kPartitionHeaderBytes);
    putWord(bytes, 0, static_cast<uint32_t>(partition_.bodyBytes));
    putWord(bytes, 8, Cal_CRC(bytesOf(body), lengthOf(body)));
    if (!stateOfBytes(partition_, bytes).valid()) return "no valid partition can hold these values";
    return store(bytes);
}

/* By way of the journal, as the library does it. When the partition could not be written, the entry stays until the old
 * bytes are back. */
std::string PartitionChange::store(const std::string &bytes) const {
    const std::string now = readWholePartition(file_, bytes.size());
    std::string mistake = placeEntry(*partition_.path, bytes, now);
    if (!mistake.empty()) return mistake;
    mistake = rewrite(bytes);
    if (mistake.empty()) removeEntry(*partition_.path);
    return mistake;
}

std::string PartitionChange::rewrite(const std::string &bytes) const {
    errno = 0;
    const ssize_t count = pwrite(file_.get(), bytes.data(), bytes.size(), 0);
    if (count < 0) return strerror(errno);
    if (fsync(file_.get()) != 0) return strerror(errno);
    if (static_cast<std::size_t>(count) < bytes.size())
        return "only " + std::to_string(count) + " of " + std::to_string(bytes.size()) + " bytes were taken";
    return readWholePartition(file_, bytes.size()) == bytes ? "" : "it does not hold what was written";
}

bool PartitionChange::putBack() const {
    if (readWholePartition(file_, before_.size()) == before_) {
        removeEntry(*partition_.path);
        return true;
    }
    static_cast<void>(store(before_));
    return readWholePartition(file_, before_.size()) == before_;
}

void makeFresh(const Partition &partition) {
    requireAccess(partition);
    std::string mistake;
    const HeldSignals held{std::string("the ") + partition.name + " partition was being made"};
    try {
        requireRegularFile(*partition.path);
        completeSave(partition);
        Beside fresh{*partition.path, kFreshMode, Beside::Name::fixed};
        mistake = makeAt(partition, fresh.path());
        if (mistake.empty()) fresh.takePlace();
    } catch (const Failure &failure) {
        mistake = failure.what();
    }
    if (!mistake.empty()) couldNotBeMade(partition, mistake);
}

void replacePartition(const Partition &partition, std::string_view bytes) {
    requireAccess(partition);
    const HeldSignals held{std::string("the ") + partition.name + " partition was being put back"};
    try {
        requireRegularFile(*partition.path);
        completeSave(partition);
        Beside copy{*partition.path, kFreshMode, Beside::Name::fixed};
        copy.write(bytes);
        copy.takePlace();
    } catch (const Failure &failure) {
        couldNotBeMade(partition, failure.what());
    }
}

}  // namespace vosctl
