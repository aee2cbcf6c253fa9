/* SPDX-License-Identifier: MIT */
#include "partition.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vosFile.h>
#include <vosSysConfig.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "../base/failure.h"
#include "../base/words.h"
#include "deviceFile.h"
#include "store.h"

namespace vosctl {

namespace {

constexpr uint32_t kNeverValid = 0xFFFFFFFF; /* the checksum of an erased header */

constexpr Partition kPartitions[] = {{"factory", &szFactoryData, sizeof flashConfig, BSP_OEM_NUMBER},
                                     {"system", &szSysData, sizeof flashData, BSP_FLASH_DATA_VERSION}};

uint32_t nativeWord(std::string_view bytes, std::size_t offset) {
    uint32_t word = 0;
    memcpy(&word, bytes.data() + offset, sizeof word);
    return word;
}

/* What is wrong with the bytes, in words. */
std::string mistakeIn(const Partition &partition, PartitionState &state) {
    const std::string_view bytes = state.bytes;
    if (bytes.empty()) return "the file is empty";
    if (bytes.size() < partition.bytes())
        return "the file has " + std::to_string(bytes.size()) + " bytes, the partition " +
               std::to_string(partition.bytes());
    const uint32_t magic = nativeWord(bytes, 4);
    if (magic != VOS_PARTITION_MAGIC)
        return "its magic word is " + hexWord(magic) + ", not " + hexWord(VOS_PARTITION_MAGIC);
    const std::string_view body = bytes.substr(kPartitionHeaderBytes, partition.bodyBytes);
    const uint32_t stored = nativeWord(bytes, 8);
    const uint32_t computed = Cal_CRC(bytesOf(body), lengthOf(body));
    state.storedChecksum = stored;
    state.computedChecksum = computed;
    if (stored == kNeverValid) return "its checksum word is erased";
    if (stored != computed) return "its checksum is " + hexWord(stored) + ", its body has " + hexWord(computed);
    return "";
}

PartitionState troubled(Trouble trouble, const std::string &reason, const std::string &remedy) {
    PartitionState state;
    state.trouble = trouble;
    state.reason = reason;
    state.remedy = remedy;
    return state;
}

/* One read from the start, as the library does it. */
PartitionState readState(const Partition &partition) {
    const char *const path = *partition.path;
    const Fd file{open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC)};
    const std::string fresh = std::string("\"vosctl partition init ") + partition.name + "\" makes a fresh one";
    const std::string why = std::string(path) + " cannot be opened: " + strerror(errno);
    if (!file && errno == ENOENT) return troubled(Trouble::missing, why, fresh);
    if (!file) return troubled(Trouble::unreadable, why, "run it as a user who may read it, such as root");
    struct stat status {};
    fstat(file.get(), &status);
    if (!S_ISREG(status.st_mode)) {
        return troubled(Trouble::unreadable,
                        std::string(path) + (S_ISDIR(status.st_mode) ? " is a directory" : " is no regular file"),
                        "see what is at this path, and remove it");
    }
    completeSave(partition);
    flock(file.get(), LOCK_SH);
    fstat(file.get(), &status); /* completing the save may have changed the size */
    PartitionState state;
    state.fileBytes = static_cast<uint64_t>(status.st_size);
    state.bytes.resize(partition.bytes());
    const ssize_t count = read(file.get(), state.bytes.data(), state.bytes.size());
    if (count < 0)
        return troubled(Trouble::unreadable, std::string(path) + " cannot be read: " + strerror(errno),
                        "see whether the flash is worn out");
    state.bytes.resize(static_cast<std::size_t>(count));
    state.reason = mistakeIn(partition, state);
    state.trouble = state.reason.empty() ? Trouble::none : Trouble::content;
    if (!state.valid()) state.remedy = "put a copy back with \"vosctl partition restore FILE\"; " + fresh;
    return state;
}

}  // namespace

std::span<const Partition> partitions() { return kPartitions; }

const Partition &partitionOf(bool factory) { return kPartitions[factory ? 0 : 1]; }

/* The library completes a partition before it reads it. */
void completeSave(const Partition &partition) {
    awaitLock(*partition.path, LOCK_SH);
    uint32_t value = 0;
    if (hasJournal()) vosSysConfigDataGet(partition.item, &value, sizeof value);
}

/* The library decides whether the partition is valid; the tool only explains why it is not. */
PartitionState stateOf(const Partition &partition) {
    PartitionState state = readState(partition);
    if (!state.valid()) return state;
    uint32_t value = 0;
    if (vosSysConfigDataGet(partition.item, &value, sizeof value) == VOS_OK) return state;
    return troubled(Trouble::unreadable, "the library cannot read it", "run it again with --verbose to see why");
}

void requireValid(const Partition &partition) {
    const PartitionState state = stateOf(partition);
    if (state.valid()) return;
    throw Failure(std::string("the ") + partition.name + " partition " + *partition.path +
                      " cannot be read or is not valid: " + state.reason,
                  std::string("see \"vosctl partition check ") + partition.name + "\"");
}

PartitionState stateOfBytes(const Partition &partition, std::string_view bytes) {
    PartitionState state;
    state.bytes = bytes;
    state.fileBytes = bytes.size();
    state.reason = mistakeIn(partition, state);
    state.trouble = state.reason.empty() ? Trouble::none : Trouble::content;
    return state;
}

}  // namespace vosctl
