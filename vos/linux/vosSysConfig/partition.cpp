/* SPDX-License-Identifier: MIT */
/* Initialising, reading and rewriting a data partition. */
#include "partition.h"

#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <span>

#include "../base/arrays.h"
#include "../base/block.h"
#include "../base/file.h"
#include "../base/journal.h"
#include "../base/log.h"
#include "vosFile.h"

constinit const char *szFactoryData = "/app/factory";
constinit const char *szSysData = "/flash/sysdata";
alignas(64) constinit uint8_t flashConfig[1272] = {};
alignas(vos::kArrayAlignment) constinit uint8_t flashData[856] = {};

namespace vos {

namespace {

using FailureText = LogText<int, const char *>;
using CountsText = LogText<int32_t, int32_t>;

/* The differences between the two partitions. */
struct PartitionSpec {
    const char *const *path;
    uint32_t bodySize;
    uint8_t headerFill; /* of the unused header bytes of a fresh partition */
    int writeFlags;

    FailureText open;
    FailureText lock;
    FailureText unlock;
    FailureText unlockAfterRead;
    FailureText read;
    CountsText shortRead;
    FailureText seek;
    FailureText write;
    CountsText shortWrite;

    [[nodiscard]] uint32_t size() const { return static_cast<uint32_t>(sizeof(PartitionHeader)) + bodySize; }
};

/* A write to a missing factory partition fails and leaves an empty file. The next start-up replaces it. */
constexpr PartitionSpec kFactory{
    .path = &szFactoryData,
    .bodySize = sizeof flashConfig,
    .headerFill = 0,
    .writeFlags = O_RDWR | O_CREAT,
    .open = "%s:open factory data failed errno:%d(%s).",
    .lock = "%s:lock factory data failed errno:%d(%s).",
    .unlock = "%s:unlock factory data failed errno:%d(%s).",
    .unlockAfterRead = "%s:unlock factory data  failed errno:%d(%s).",
    .read = "%s:read factory data failed errno:%d(%s).",
    .shortRead = "%s:read factory data  need %d but only read %d.",
    .seek = "%s:lseek factory data failed errno:%d(%s).",
    .write = "%s:write factory data failed errno:%d(%s).",
    .shortWrite = "%s:write factory data need %d but only write %d.",
};

/* A write to a missing system partition fails and creates nothing. */
constexpr PartitionSpec kSystem{
    .path = &szSysData,
    .bodySize = sizeof flashData,
    .headerFill = 0xFF,
    .writeFlags = O_RDWR,
    .open = "%s:open system data failed errno:%d(%s).",
    .lock = "%s:lock system data failed errno:%d(%s).",
    .unlock = "%s:unlock system data  failed errno:%d(%s).",
    .unlockAfterRead = "%s:unlock system data  failed errno:%d(%s).",
    .read = "%s:read system data failed errno:%d(%s).",
    .shortRead = "%s:read system data  need %d but only read %d.",
    .seek = "%s:lseek system data failed errno:%d(%s).",
    .write = "%s:write system data  failed errno:%d(%s).",
    .shortWrite = "%s:write system data  need %d but only write %d.",
};

static_assert(sizeof flashConfig == 1272 && sizeof flashData == 856);

/* A partition's bytes in memory. */
class Image {
  public:
    explicit Image(const PartitionSpec &spec) : size_(spec.size()), bytes_(allocate(spec.size())) {}

    explicit operator bool() const { return bytes_ != nullptr; }
    [[nodiscard]] std::span<uint8_t> bytes() const { return {bytes_.get(), size_}; }
    [[nodiscard]] std::span<uint8_t> body() const { return bytes().subspan(sizeof(PartitionHeader)); }
    [[nodiscard]] uint32_t checksum() const { return Cal_CRC(body().data(), static_cast<uint32_t>(body().size())); }

    [[nodiscard]] PartitionHeader header() const {
        PartitionHeader header;
        memcpy(&header, bytes_.get(), sizeof header);
        return header;
    }
    void setHeader(const PartitionHeader &header) const { memcpy(bytes_.get(), &header, sizeof header); }

  private:
    uint32_t size_;
    Block bytes_;
};

PartitionHeader freshHeader(const PartitionSpec &spec, uint32_t checksum) {
    PartitionHeader header{};
    header.bodyLength = spec.bodySize;
    header.magic = VOS_PARTITION_MAGIC;
    header.checksum = checksum;
    std::ranges::fill(header.unused, spec.headerFill);
    return header;
}

void lockFile(Caller me, const PartitionSpec &spec, const UniqueFd &file, int how) {
    if (flock(file.get(), how) != 0) errorErrno(me, spec.lock);
}

void unlockFile(Caller me, const FailureText &text, const UniqueFd &file) {
    if (flock(file.get(), LOCK_UN) != 0) errorErrno(me, text);
}

/* A failed or short write is only logged; one that does not begin at the start leaves the partition as it was. With the
 * journal the lock is kept until the entry is removed. Without the lock another process would find the entry and treat
 * this save as an interrupted one. */
void writeImage(Caller me, const PartitionSpec &spec, const UniqueFd &file, const Image &image,
                std::optional<journal::Save> &save, bool atStart) {
    const auto wanted = static_cast<int32_t>(spec.size());
    const auto count = static_cast<int32_t>(write(file.get(), image.bytes().data(), spec.size()));
    if (count < 0)
        errorErrno(me, spec.write);
    else if (count < wanted)
        error(me, spec.shortWrite, wanted, count);
    if (!save) unlockFile(me, spec.unlock, file);
    const bool synced = fsync(file.get()) == 0;
    const bool flushed = syncfs(file.get()) == 0 && synced;
    if (!save) return;
    save->finish(atStart && count == wanted && flushed);
    unlockFile(me, spec.unlock, file);
}

int32_t readImage(const UniqueFd &file, const Image &image) {
    return static_cast<int32_t>(read(file.get(), image.bytes().data(), image.bytes().size()));
}

/* Logs a failed or short read. */
int32_t shortOf(Caller me, const PartitionSpec &spec, int32_t count) {
    if (count < 0) return failedErrno(me, VOS_ERROR, spec.read);
    return failed(me, VOS_ERROR, spec.shortRead, static_cast<int32_t>(spec.size()), count);
}

/* A stored checksum of 0xFFFFFFFF means erased flash. It is never valid, also when it is the body's checksum. */
int32_t validate(Caller me, const Image &image) {
    const PartitionHeader header = image.header();
    if (header.magic != VOS_PARTITION_MAGIC) return failed(me, VOS_ERR_MAGIC, "%s:invalid magic.");
    if (header.checksum != image.checksum() || header.checksum == 0xFFFFFFFFu)
        return failed(me, VOS_ERR_CHECKSUM, "%s:crc error.");
    return VOS_OK;
}

/* As validate(), for the journal. */
bool valid(std::span<const uint8_t> bytes) {
    PartitionHeader header;
    memcpy(&header, bytes.data(), sizeof header);
    const auto body = bytes.subspan(sizeof header);
    return header.magic == VOS_PARTITION_MAGIC && header.checksum != 0xFFFFFFFFu &&
           header.checksum == Cal_CRC(body.data(), static_cast<uint32_t>(body.size()));
}

journal::Target targetOf(Caller me, const PartitionSpec &spec) {
    return {me, szVosJournalDir, *spec.path, spec.size(), valid};
}

/* Completes a partition whose save was interrupted. False when that failed: the partition may be torn. */
bool complete(const journal::Target &target, const UniqueFd &file) {
    return !target.on() || journal::settle(target, file) != journal::Settled::Failed;
}

/* Whether a partition that could not be read can be read now, because its save has been completed meanwhile. */
bool isWhole(const PartitionSpec &spec, const journal::Target &target, const UniqueFd &file) {
    if (journal::settle(target, file) != journal::Settled::Changed) return false;
    const Image image{spec};
    /* The offset stays at the start, where the caller writes. */
    return image && pread(file.get(), image.bytes().data(), spec.size(), 0) == ssize_t{spec.size()} &&
           valid(image.bytes());
}

using MaybeSave = std::optional<journal::Save>;

MaybeSave saveOf(const journal::Target &target, const Image &image) {
    if (!target.on()) return std::nullopt;
    return MaybeSave{std::in_place, target, image.bytes()};
}

int32_t initialise(Caller me, const PartitionSpec &spec) {
    trace(me, "%s:start.");
    const Image image{spec};
    if (!image) return failed(me, VOS_ERROR, "%s:paramters error.");
    std::ranges::fill(image.body(), 0xFF);
    image.setHeader(freshHeader(spec, image.checksum()));
    const auto target = targetOf(me, spec);
    MaybeSave save = saveOf(target, image);
    const UniqueFd file = save ? save->open(kFileMode) : openFile(*spec.path, O_RDWR | O_CREAT);
    if (!file) return save && save->refused() ? VOS_ERROR : failedErrno(me, VOS_ERROR, spec.open);
    lockFile(me, spec, file, LOCK_EX);
    if (save && !save->creating() && isWhole(spec, target, file)) return VOS_OK;
    if (save && !save->protect(file)) return VOS_ERROR;
    writeImage(me, spec, file, image, save, true);
    return VOS_OK;
}

int32_t readPartition(Caller me, const PartitionSpec &spec, uint8_t *body) {
    trace(me, "%s:start.");
    if (body == nullptr) return failed(me, VOS_ERR_PARAM, "%s:paramters error.");
    const Image image{spec};
    if (!image) return failed(me, VOS_ERROR, "%s:malloc failed.");
    UniqueFd file = openFile(*spec.path, O_RDONLY);
    if (!file) return failedErrno(me, VOS_ERROR, spec.open);
    lockFile(me, spec, file, LOCK_SH);
    if (!complete(targetOf(me, spec), file)) return VOS_ERROR;
    const int32_t count = readImage(file, image);
    {
        const ErrnoKeeper keep;
        unlockFile(me, spec.unlockAfterRead, file);
        file.reset();
    }
    if (count == 0) return VOS_ERR_MAGIC;
    if (count < static_cast<int32_t>(spec.size())) return shortOf(me, spec, count);
    if (const int32_t result = validate(me, image); result != VOS_OK) return result;
    std::ranges::copy(image.body(), body);
    return VOS_OK;
}

/* Magic and checksum of the old content are not examined, and its reserved bytes are kept. */
int32_t writePartition(Caller me, const PartitionSpec &spec, const uint8_t *body) {
    trace(me, "%s:start.");
    if (body == nullptr) return failed(me, VOS_ERROR, "%s:paramters error.");
    const Image image{spec};
    if (!image) return failed(me, VOS_ERROR, "%s:malloc failed.");
    const UniqueFd file = openFile(*spec.path, spec.writeFlags);
    if (!file) return failedErrno(me, VOS_ERROR, spec.open);
    lockFile(me, spec, file, LOCK_EX);
    const auto target = targetOf(me, spec);
    if (!complete(target, file)) return VOS_ERROR;
    const int32_t count = readImage(file, image);
    if (count < static_cast<int32_t>(spec.size())) return shortOf(me, spec, count);
    const uint32_t previous = target.on() ? journal::checksum(0, image.bytes()) : 0;
    std::copy_n(body, spec.bodySize, image.body().data());
    PartitionHeader header = image.header();
    header.bodyLength = spec.bodySize;
    header.checksum = image.checksum();
    image.setHeader(header);
    MaybeSave save = saveOf(target, image);
    if (save && !save->protect(file, previous)) return VOS_ERROR;
    const bool sought = lseek(file.get(), 0, SEEK_SET) == 0;
    if (!sought) errorErrno(me, spec.seek);
    writeImage(me, spec, file, image, save, sought);
    return VOS_OK;
}

}  // namespace

int32_t bootConfigDataInit() { return initialise(Caller{}, kFactory); }
int32_t readBootConfigData(uint8_t *body) { return readPartition(Caller{}, kFactory, body); }
int32_t writeBootConfigData(const uint8_t *body) { return writePartition(Caller{}, kFactory, body); }

int32_t flashAppDataInit() { return initialise(Caller{}, kSystem); }
int32_t readFlashAppData(uint8_t *body) { return readPartition(Caller{}, kSystem, body); }
int32_t writeFlashAppData(const uint8_t *body) { return writePartition(Caller{}, kSystem, body); }

}  // namespace vos
