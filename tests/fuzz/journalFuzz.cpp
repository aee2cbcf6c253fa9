/* SPDX-License-Identifier: MIT */
/* Entries of the journal. First byte: with bit 0 the checksum of the entry is corrected; with bit 1 the target is the
 * system partition, else a file. Second byte: the number of bytes in the target before. The rest is the entry. */
#include <sys/stat.h>

#include "flash.h"

namespace {

constexpr const char *kDirectory = "/flash/journal";
constexpr const char *kFile = "/flash/data";
constexpr std::size_t kChecksum = 28;

/* FNV-1a of the path, as docs/flash-formats.md describes it. */
std::string entryOf(const char *path) {
    uint64_t hash = 0xCBF29CE484222325;
    for (; *path != '\0'; ++path) hash = (hash ^ static_cast<uint8_t>(*path)) * 0x100000001B3;
    char name[64];
    snprintf(name, sizeof name, "%s/%016llx.save", kDirectory, static_cast<unsigned long long>(hash));
    return name;
}

uint32_t crc(uint32_t before, const std::string &bytes) {
    return vosFileCrc32(before, reinterpret_cast<const uint8_t *>(bytes.data()), static_cast<uint32_t>(bytes.size()));
}

void seal(std::string &entry) {
    if (entry.size() < kChecksum + 4) return;
    putWord(entry, kChecksum, ~crc(crc(0xFFFFFFFFu, entry.substr(0, kChecksum)), entry.substr(kChecksum + 4)));
}

std::string contentOf(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    szVosJournalDir = nullptr;
    prepareDevice();
    if (size < 2) return 0;
    const bool partition = (data[0] & 2) != 0;
    const char *const path = partition ? szSysData : kFile;
    std::string entry(reinterpret_cast<const char *>(data) + 2, size - 2);
    if ((data[0] & 1) != 0) seal(entry);
    const std::string before(data[1], '\0');
    std::ofstream{path, std::ios::binary | std::ios::trunc} << before;
    mkdir(kDirectory, 0700);
    std::ofstream{entryOf(path), std::ios::binary | std::ios::trunc} << entry;
    const std::string application = contentOf(szAppFileName), factory = contentOf(szFactoryData);

    szVosJournalDir = kDirectory;
    if (partition) {
        uint32_t word = 0;
        vosSysConfigDataGet(BSP_BANDRATE, &word, sizeof word);
    } else {
        std::string buffer(4096, '\0');
        vosFileRead(path, buffer.data(), 4096);
        if (access(entryOf(path).c_str(), F_OK) == 0) abort();
        const std::string saved(reinterpret_cast<const char *>(data), size);
        if (vosFileWrite(path, data, static_cast<uint32_t>(size)) != VOS_OK || contentOf(path) != saved) abort();
        entry = saved;
    }
    szVosJournalDir = nullptr;

    if (access(entryOf(path).c_str(), F_OK) == 0) abort(); /* it is used or removed */
    const std::string after = contentOf(path);
    if (after != before && (entry.size() < after.size() || !entry.ends_with(after))) abort();
    if (contentOf(szAppFileName) != application || contentOf(szFactoryData) != factory) abort();
    return 0;
}
