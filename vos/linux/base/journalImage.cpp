/* SPDX-License-Identifier: MIT */
#include "journalImage.h"

#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <limits>

#include "file.h"
#include "log.h"
#include "wire.h"

namespace vos::journal {

namespace {

constexpr uint32_t kMagic = 0x4A494D47;
constexpr uint32_t kVersion = 1;
constexpr mode_t kRecordMode = 0600;
constexpr std::size_t kFixedSize = 60;
constexpr std::size_t kSum = kFixedSize - sizeof(uint32_t);

/* A record and the path behind it. */
class Record {
  public:
    Record(Bytes path, const ImageMark &wanted, const std::optional<ImageMark> &old) : size_(kFixedSize + path.size()) {
        putWord(kMagic);
        putWord(kVersion);
        putWord(static_cast<uint32_t>(path.size()));
        put(wanted);
        putWord(old ? 1 : 0);
        put(old.value_or(ImageMark{}));
        std::ranges::copy(path, bytes_.data() + kFixedSize);
        const Bytes all{bytes_};
        putWord(checksum(checksum(0, all.first(kSum)), all.subspan(kFixedSize, path.size())));
    }

    [[nodiscard]] const uint8_t *data() const { return bytes_.data(); }
    [[nodiscard]] std::size_t size() const { return size_; }

  private:
    void putWord(uint32_t value) {
        value = __builtin_bswap32(value);
        memcpy(bytes_.data() + at_, &value, sizeof value);
        at_ += sizeof value;
    }
    void put(const ImageMark &mark) {
        putWord(mark.length);
        std::ranges::copy(mark.header, bytes_.data() + at_);
        at_ += mark.header.size();
    }

    std::array<uint8_t, kFixedSize + kLongestPath + 1> bytes_;
    std::size_t at_ = 0;
    std::size_t size_;
};

/* What an earlier attempt has left under the name is removed first, whatever it is. */
UniqueFd createRecord(const UniqueFd &directory, const char *name) {
    constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    UniqueFd file{openat(directory.get(), name, kFlags, kRecordMode)};
    if (file || errno != EEXIST || unlinkat(directory.get(), name, 0) != 0) return file;
    file.reset(openat(directory.get(), name, kFlags, kRecordMode));
    return file;
}

bool writeRecord(const UniqueFd &file, const Record &record) {
    const ssize_t count = write(file.get(), record.data(), record.size());
    if (count < 0) return false;
    errno = ENOSPC;
    return static_cast<std::size_t>(count) == record.size() && fsync(file.get()) == 0;
}

bool replaceRecord(const Target &target, const Names &names, const Record &record) {
    using Name = Text<24>;
    const std::string_view stem{names.entry(), Names::kStem};
    const Name name = Name{}.append(stem).append(".image"), temporary = Name{}.append(stem).append(".part");
    const UniqueFd directory = openDirectory(target.directory);
    if (!directory || flock(directory.get(), LOCK_EX) != 0) return false;
    UniqueFd file = createRecord(directory, temporary.get());
    const bool written = file && writeRecord(file, record);
    const ErrnoKeeper keep;
    file.reset();
    if (written && renameat(directory.get(), temporary.get(), directory.get(), name.get()) == 0)
        return fsync(directory.get()) == 0;
    const ErrnoKeeper keepOfRename;
    unlinkat(directory.get(), temporary.get(), 0);
    unlinkat(directory.get(), name.get(), 0); /* a record of an earlier installation would be wrong now */
    return false;
}

}  // namespace

std::optional<ImageMark> imageAt(const char *path) {
    const ErrnoKeeper keep;
    const UniqueFd file = openFile(path, O_RDONLY);
    struct stat state;
    ImageMark mark;
    constexpr auto kLongest = std::numeric_limits<uint32_t>::max();
    if (!file || fstat(file.get(), &state) != 0 || state.st_size > off_t{kLongest}) return std::nullopt;
    if (pread(file.get(), mark.header.data(), mark.header.size(), 0) != ssize_t{mark.header.size()})
        return std::nullopt;
    mark.length = static_cast<uint32_t>(state.st_size);
    return mark;
}

void recordImage(const Target &target, const ImageMark &wanted, const std::optional<ImageMark> &old) {
    const ErrnoKeeper keep;
    const Names names{target.directory, target.path};
    errno = ENAMETOOLONG;
    if (names.fit() && replaceRecord(target, names, Record{names.pathBytes(), wanted, old})) return;
    errorErrno(target.me, "%s:journal of file %s failed errno:%d(%s), the installation is not recorded.",
               outside(target.path));
}

}  // namespace vos::journal
