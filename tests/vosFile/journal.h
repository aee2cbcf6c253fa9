/* SPDX-License-Identifier: MIT */
/* What the tests of the journal share: entries made by the test, stores that are saved and read, states of the flash.
 */
#ifndef TESTS_VOS_FILE_JOURNAL_H
#define TESTS_VOS_FILE_JOURNAL_H

#include <map>

#include "vosFile/images.h"
#include "vosSysConfig/partitions.h"

namespace vostest {

inline const char *const kJournal = "/flash/journal";

/* The name of an entry by its description: FNV-1a of the absolute path. */
inline std::string entryName(const std::string &path, const char *suffix = ".save") {
    uint64_t hash = 0xCBF29CE484222325;
    for (const char c : path) hash = (hash ^ static_cast<uint8_t>(c)) * 0x100000001B3;
    char name[32];
    snprintf(name, sizeof name, "%016lx", static_cast<unsigned long>(hash));
    return std::string(kJournal) + "/" + name + suffix;
}

struct EntryOf {
    std::string path;
    std::string content;
    uint32_t kind = 0;
    std::string previous = std::string(8, '\0'); /* two words */
};
inline std::string entryBytes(const EntryOf &entry) {
    const std::string path = named(entry.path);
    const std::string head = networkWord(0x4A524E4C) + networkWord(1) + networkWord(entry.kind) +
                             networkWord(size32(path)) + networkWord(size32(entry.content)) + entry.previous;
    return head + networkWord(imageCrc(head + path + entry.content)) + path + entry.content;
}
inline void putEntry(const std::string &name, const std::string &bytes) {
    std::filesystem::create_directory(kJournal);
    putFile(name, bytes);
}

inline std::vector<std::string> journalFiles() {
    std::vector<std::string> names;
    if (!present(kJournal)) return names;
    for (const auto &each : std::filesystem::directory_iterator(kJournal)) names.push_back(each.path().filename());
    return names;
}

/* All files of the device with their content. */
using State = std::map<std::string, std::string>;
inline State stateOfFlash() {
    State state;
    for (const char *const root : {"/flash", "/app"})
        for (const auto &each : std::filesystem::recursive_directory_iterator(root))
            if (each.is_regular_file()) state[each.path()] = fileContent(each.path());
    return state;
}
inline void emptyFlash() {
    for (const char *const root : {"/flash", "/app"})
        for (const auto &each : std::filesystem::directory_iterator(root)) std::filesystem::remove_all(each.path());
}
inline void putState(const State &state) {
    emptyFlash();
    std::filesystem::create_directory(kJournal);
    for (const auto &[path, content] : state) putFile(path, content);
}

/* One store that is saved. `read` returns the content that a reader gets, or kMissing, or kFailed. */
struct Store {
    std::string name;
    std::string path;
    std::function<void()> putOld;
    std::function<long()> saveNew;
    std::function<std::string()> read;
    std::string before, after;
};
inline void PrintTo(const Store &store, std::ostream *to) { *to << store.name; }

inline const std::string kMissing = "missing", kFailed = "failed";
inline const std::string kOldContent(6000, 'o'), kNewContent(5000, 'n');

inline std::string readFile(const std::string &path) {
    std::string buffer(20000, '.');
    const int32_t count = vosFileRead(path.c_str(), buffer.data(), size32(buffer));
    if (count < 0) return count == VOS_ERR_NO_FILE ? kMissing : kFailed;
    return buffer.substr(0, static_cast<std::size_t>(count));
}
inline std::string readConfiguration() {
    char *buffer = nullptr;
    uint32_t length = 0;
    const int32_t result = vosFileCfgRead(&buffer, &length);
    if (result != VOS_OK) return result == VOS_ERR_NO_FILE ? kMissing : kFailed;
    std::string content(buffer, length);
    vosFileCfgFree(buffer);
    return content;
}
inline std::string readSyslog() {
    std::string buffer(20000, '.');
    const int32_t count = vosFileSyslogRead(buffer.data(), size32(buffer));
    if (count < 0) return count == VOS_ERR_NO_FILE ? kMissing : kFailed;
    return buffer.substr(0, static_cast<std::size_t>(count));
}
inline std::string readItem(int32_t item) {
    uint32_t value = 0;
    return getWord(item, value) == VOS_OK ? std::to_string(value) : kFailed;
}
inline long saveFile(const char *path, const std::string &content = kNewContent) {
    return vosFileWrite(path, content.data(), size32(content));
}
inline long saveConfiguration(const std::string &content = kNewContent) {
    return vosFileCfgWrite(content.data(), size32(content));
}

inline void putItems(const Partition &partition) {
    std::string body = erasedBody(partition);
    body.replace(partition.word == "factory" ? 12 : 16, 4, nativeWord(1));
    putFile(partition.path, partitionOf(body));
}

inline std::vector<Store> stores() {
    const auto old = [](const std::string &path) { return [=] { putFile(path, kOldContent); }; };
    const std::string configuration = "/flash/zebcfg", log = "/flash/syslog";
    const auto saveLog = [] { return long{vosFileSyslogWrite(kNewContent.data(), size32(kNewContent))}; };
    const auto item = [](const Partition &each) {
        return Store{each.word,
                     each.path,
                     [=] { putItems(each); },
                     [=] { return long{setWord(each.item, 2)}; },
                     [=] { return readItem(each.item); },
                     "1",
                     "2"};
    };
    return {
        {"file", "/flash/data", old("/flash/data"), [] { return saveFile("/flash/data"); },
         [] { return readFile("/flash/data"); }, kOldContent, kNewContent},
        {"newFile", "/flash/data", [] {}, [] { return saveFile("/flash/data"); },
         [] { return readFile("/flash/data"); }, kMissing, kNewContent},
        {"configuration", configuration, old(configuration), [] { return saveConfiguration(); }, readConfiguration,
         kOldContent, kNewContent},
        {"newConfiguration", configuration, [] {}, [] { return saveConfiguration(); }, readConfiguration, kMissing,
         kNewContent},
        {"syslog", log, old(log), saveLog, readSyslog, kOldContent, kNewContent},
        {"version", kVersion, [] { putFile(kVersion, named("1.0")); }, [] { return long{vosFileAppVerUpdate("2.1")}; },
         [] { return readFile(kVersion); }, named("1.0"), named("2.1")},
        item(kFactory),
        item(kSystem)};
}

}  // namespace vostest

#endif
