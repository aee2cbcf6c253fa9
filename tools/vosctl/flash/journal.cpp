/* SPDX-License-Identifier: MIT */
#include "journal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vosFile.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "../base/failure.h"
#include "../base/fd.h"
#include "deviceFile.h"
#include "imageFile.h"
#include "store.h"

namespace vosctl {

namespace {

constexpr uint32_t kEntryMagic = 0x4A524E4C, kRecordMagic = 0x4A494D47, kVersion = 1, kPartition = 1;
constexpr std::size_t kEntryHeader = 32, kRecordHeader = 60, kWord = sizeof(uint32_t);
constexpr std::size_t kStem = 16;             /* characters of a name before its suffix */
constexpr std::size_t kLongestFile = 1 << 26; /* an entry that is longer is not looked at */
constexpr mode_t kDirectoryMode = 0700, kEntryMode = 0600;

std::string nameOf(const std::string &path, const char *suffix) {
    uint64_t hash = 0xCBF29CE484222325;
    for (const char c : std::filesystem::absolute(path).string())
        hash = (hash ^ static_cast<uint8_t>(c)) * 0x100000001B3;
    std::array<char, kStem + 1> digits{};
    snprintf(digits.data(), digits.size(), "%016llx", static_cast<unsigned long long>(hash));
    return std::string(digits.data()) + suffix;
}

std::string inJournal(const std::string &name) { return std::string(szVosJournalDir) + "/" + name; }

/* Nothing for what is no regular file, or cannot be read, or is too long. */
std::optional<std::string> bytesAt(const std::string &path) {
    const Fd file{open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)};
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
    if (static_cast<uint64_t>(status.st_size) > kLongestFile) return {};
    std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
    const ssize_t count = pread(file.get(), bytes.data(), bytes.size(), 0);
    if (count < 0 || static_cast<std::size_t>(count) != bytes.size()) return {};
    return bytes;
}

/* The path in the bytes of an entry or a record; nothing when it does not end with its NUL. */
std::optional<std::string> pathIn(std::string_view bytes, std::size_t at, std::size_t length) {
    if (length == 0 || bytes.size() < at || bytes.size() - at < length) return {};
    const std::string_view path = bytes.substr(at, length - 1);
    if (bytes[at + length - 1] != '\0' || path.find('\0') != std::string_view::npos) return {};
    return std::string(path);
}

/* The target of a sound entry. */
std::optional<std::string> targetOfEntry(const std::string &bytes) {
    if (bytes.size() < kEntryHeader || networkWord(bytes, 0) != kEntryMagic || networkWord(bytes, 4) != kVersion ||
        networkWord(bytes, 8) > kPartition)
        return {};
    const std::size_t length = networkWord(bytes, 12);
    if (bytes.size() != kEntryHeader + length + networkWord(bytes, 16)) return {};
    const std::string summed = bytes.substr(0, kEntryHeader - kWord) + bytes.substr(kEntryHeader);
    if (networkWord(bytes, kEntryHeader - kWord) != crc32Of(summed)) return {};
    return pathIn(bytes, kEntryHeader, length);
}

/* The target of a sound record. */
std::optional<std::string> targetOfRecord(const std::string &bytes) {
    if (bytes.size() < kRecordHeader || networkWord(bytes, 0) != kRecordMagic || networkWord(bytes, 4) != kVersion)
        return {};
    const std::size_t length = networkWord(bytes, 8);
    if (bytes.size() != kRecordHeader + length) return {};
    const std::string summed = bytes.substr(0, kRecordHeader - kWord) + bytes.substr(kRecordHeader);
    if (networkWord(bytes, kRecordHeader - kWord) != crc32Of(summed)) return {};
    return pathIn(bytes, kRecordHeader, length);
}

ImageMark markAt(const std::string &bytes, std::size_t at) {
    return {networkWord(bytes, at), bytes.substr(at + kWord, kImageHeaderBytes)};
}

bool isStem(std::string_view name) {
    return name.size() > kStem && name.find_first_not_of("0123456789abcdef") == kStem;
}

KeptFile keptAt(const std::string &name) {
    KeptFile file{name, Kept::foreign, ""};
    const std::string suffix = isStem(name) ? name.substr(kStem) : "";
    if (suffix == ".new" || suffix == ".part") file.kept = Kept::unfinished;
    if (suffix != ".save" && suffix != ".image") return file;
    const auto bytes = bytesAt(inJournal(name));
    const bool isSave = suffix == ".save";
    const auto target = !bytes ? std::nullopt : isSave ? targetOfEntry(*bytes) : targetOfRecord(*bytes);
    const bool sound = target && nameOf(*target, suffix.c_str()) == name;
    file.kept = !sound ? Kept::torn : isSave ? Kept::save : Kept::image;
    if (sound) file.target = *target;
    return file;
}

bool flushDirectory() {
    const Fd directory{open(szVosJournalDir, O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    return directory && fsync(directory.get()) == 0;
}

bool writeEntry(const std::string &name, const std::string &bytes) {
    unlink(name.c_str());
    const Fd file{open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kEntryMode)};
    if (!file) return false;
    const ssize_t count = write(file.get(), bytes.data(), bytes.size());
    if (count >= 0 && static_cast<std::size_t>(count) < bytes.size()) errno = ENOSPC;
    return count >= 0 && static_cast<std::size_t>(count) == bytes.size() && fsync(file.get()) == 0;
}

}  // namespace

std::optional<std::vector<KeptFile>> keptInJournal() {
    std::error_code failed;
    std::vector<std::string> names;
    for (const auto &each : std::filesystem::directory_iterator(szVosJournalDir, failed))
        names.push_back(each.path().filename());
    if (failed == std::errc::no_such_file_or_directory) return {};
    if (failed) {
        throw Failure(std::string("the journal ") + szVosJournalDir + " cannot be read: " + failed.message(),
                      "see that it is a directory, and run it as a user who may read it, such as root");
    }
    std::sort(names.begin(), names.end());
    std::vector<KeptFile> files;
    std::transform(names.begin(), names.end(), std::back_inserter(files), keptAt);
    return files;
}

std::optional<ImageRecord> imageRecordOf(const std::string &path) {
    if (!hasJournal()) return {};
    const auto bytes = bytesAt(inJournal(nameOf(path, ".image")));
    if (!bytes || targetOfRecord(*bytes) != std::filesystem::absolute(path).string()) return {};
    ImageRecord record{markAt(*bytes, 12), {}};
    if (networkWord(*bytes, 32) == 1) record.old = markAt(*bytes, 36);
    return record;
}

void removeImageRecord(const std::string &path) {
    if (hasJournal() && unlink(inJournal(nameOf(path, ".image")).c_str()) == 0) static_cast<void>(flushDirectory());
}

std::string placeEntry(const std::string &path, std::string_view content, std::string_view before) {
    if (!hasJournal()) return "";
    const std::string target = std::filesystem::absolute(path).string() + '\0';
    std::string head;
    for (const uint32_t word :
         {kEntryMagic, kVersion, kPartition, lengthOf(target), lengthOf(content), uint32_t{1}, crc32Of(before)})
        head += networkBytes(word);
    const std::string rest = target + std::string(content);
    const std::string name = inJournal(nameOf(path, ".save")), unfinished = inJournal(nameOf(path, ".new"));
    mkdir(szVosJournalDir, kDirectoryMode);
    const bool placed = writeEntry(unfinished, head + networkBytes(crc32Of(head + rest)) + rest) &&
                        rename(unfinished.c_str(), name.c_str()) == 0;
    if (placed && flushDirectory()) return "";
    std::string why = std::string("the journal ") + szVosJournalDir + " cannot be written: " + strerror(errno);
    unlink(placed ? name.c_str() : unfinished.c_str());
    return why;
}

void removeEntry(const std::string &path) {
    if (hasJournal() && unlink(inJournal(nameOf(path, ".save")).c_str()) == 0) static_cast<void>(flushDirectory());
}

}  // namespace vosctl
