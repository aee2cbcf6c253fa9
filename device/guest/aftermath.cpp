/* SPDX-License-Identifier: MIT */
#include "aftermath.h"

#include <sys/wait.h>
#include <unistd.h>
#include <vos.h>

#include "report.h"

namespace stores {

namespace {

/* Places in the list of objects. */
enum At : std::size_t {
    kConfigurationFile = 0,
    kSystemPartition = 2,
    kFactoryPartition = 3,
    kApplicationFile = 4,
    kBackup = 6
};

/* Runs a piece of code as a process of its own, and returns what it printed. */
template <class Code>
std::string printed(Code code) {
    int ends[2];
    std::string text;
    if (!expect(pipe(ends) == 0, "there is no pipe")) return text;
    fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        code();
        fflush(stdout);
        _exit(0);
    }
    close(ends[1]);
    char part[4096];
    for (ssize_t count = 0; (count = ::read(ends[0], part, sizeof part)) > 0;)
        text.append(part, static_cast<std::size_t>(count));
    close(ends[0]);
    int status = -1;
    waitpid(child, &status, 0);
    expect(status == 0, "start-up ended with status 0x%x", static_cast<unsigned>(status));
    return text;
}

bool says(const std::string &text, const char *what) { return text.find(what) != std::string::npos; }

/* A partition that cannot be read is replaced by an erased one. Any other is not changed. */
void checkPartition(const char *name, bool usable, const std::string &log, const char *line, const std::string &bytes,
                    const std::string &before) {
    expect(says(log, line) == !usable, "%s: start-up says \"%s\"%s", name, line,
           usable ? " although it is whole" : " nowhere");
    if (usable)
        expect(bytes == before, "%s: start-up has changed it", name);
    else
        expect(bytes.size() == before.size() && bytes.find_first_not_of('\xFF', 128) == std::string::npos,
               "%s: start-up has not erased it", name);
}

void checkConfiguration(bool there, std::size_t length) {
    char *buffer = nullptr;
    uint32_t size = 0;
    const int32_t result = vosFileCfgRead(&buffer, &size);
    expect(result == (there ? VOS_OK : VOS_ERR_NO_FILE), "the configuration is read with %d", result);
    expect(size == length, "the configuration is read with %u bytes, not %zu", size, length);
    vosFileCfgFree(buffer);
}

void checkApplication(bool usable) {
    const int32_t result = vosFileImageCheckFile(2, szAppFileName);
    expect((result == VOS_OK) == usable, "the application is checked with %d, and it is %s", result,
           usable ? "whole" : "not");
}

void restoreItem(int32_t item, const std::string &partition, std::size_t at, uint32_t length) {
    expect(vosSysConfigDataSet(item, &partition[128 + at], length) == VOS_OK, "item %d cannot be set", item);
}

}  // namespace

Aftermath::Aftermath(const Generations &before, const Generations &after) : after_(after) {
    for (std::size_t i = 0; i < kObjects; ++i)
        seen_[i] = {.before = objects()[i].content(before), .after = objects()[i].content(after)};
}

void Aftermath::recover() {
    const std::string log = printed([] {
        vosInit("power-cut");
        uint32_t size = 0, value = 0;
        for (const Object &object : objects())
            if (object.path != nullptr) vosFileSizeGet(object.path, &size);
        vosSysConfigDataGet(BSP_OEM_NUMBER, &value, sizeof value);
        vosSysConfigDataGet(BSP_FLASH_DATA_VERSION, &value, sizeof value);
    });
    expect(!says(log, "Initialize"), "start-up has erased a partition: %s", log.c_str());
    if (says(log, "restored from the journal")) printf("recovered\n");
}

void Aftermath::look() {
    state_.clear();
    for (std::size_t i = 0; i < kObjects; ++i) {
        const Object &object = objects()[i];
        Seen &seen = seen_[i];
        const bool device = object.path == nullptr;
        /* A file may be longer than it should be; the boot loader's flash always is. */
        const Bytes bytes = read(object, seen.after.size() + (device ? 0 : 1));
        seen.found = classify(bytes, seen.before, seen.after, device);
        seen.length = bytes.bytes.size();
        /* Start-up does not read the boot loader, so it does not matter which of its words are missing. */
        state_ += device ? nameOf(seen.found) : (bytes.there ? '+' : '-') + bytes.bytes;
        const char letter = static_cast<char>(nameOf(seen.found)[0] - 'a' + 'A');
        if (seen.changed()) {
            const std::string_view allowed = szVosJournalDir != nullptr ? object.withJournal : object.allowed;
            expect(allowed.find(letter) != std::string_view::npos, "%s is %s, which no cut may leave", object.name,
                   nameOf(seen.found));
        } else {
            expect(seen.found == Found::New, "%s was not being saved, and is %s", object.name, nameOf(seen.found));
        }
    }
    const std::string &application = seen_[kApplicationFile].before;
    expect(seen_[kApplicationFile].usable() || read(objects()[kBackup], application.size() + 1).bytes == application,
           "neither the application nor its backup is whole");
}

std::string Aftermath::outcome() const {
    std::string text;
    for (std::size_t i = 0; i < kObjects; ++i)
        if (seen_[i].changed())
            text += std::string(text.empty() ? "" : ", ") + objects()[i].name + "=" + nameOf(seen_[i].found);
    return text;
}

void Aftermath::startUp() const {
    const Object &system = objects()[kSystemPartition];
    const Object &factory = objects()[kFactoryPartition];
    const std::string systemBefore = read(system, 4096).bytes;
    const std::string factoryBefore = read(factory, 4096).bytes;
    const std::string log = printed([] { vosInit("power-cut"); });
    checkPartition(system.name, seen_[kSystemPartition].usable(), log, "Initialize system data partition",
                   read(system, 4096).bytes, systemBefore);
    checkPartition(factory.name, seen_[kFactoryPartition].usable(), log, "Initialize factory data partition",
                   read(factory, 4096).bytes, factoryBefore);
    checkConfiguration(seen_[kConfigurationFile].found != Found::Lost, seen_[kConfigurationFile].length);
    checkApplication(seen_[kApplicationFile].usable());
}

void Aftermath::repair(Store store) const {
    const std::string &factory = seen_[kFactoryPartition].before;
    if (!seen_[kSystemPartition].usable()) restoreItem(BSP_USER, seen_[kSystemPartition].before, 72, 476);
    if (!seen_[kFactoryPartition].usable()) {
        restoreItem(BSP_OEM_NUMBER, factory, 12, 4);
        restoreItem(BSP_SERIAL_NUMBER, factory, 16, 32);
        restoreItem(BSP_OEM_INFO, factory, 48, 1024);
    }
    if (!seen_[kApplicationFile].usable())
        expect(vosFileCopy(objects()[kBackup].path, szAppFileName) == VOS_OK, "the backup cannot be restored");
    /* To install the same application again would back it up, and overwrite the backup of the application before. */
    const bool installed = store == kApplication && seen_[kApplicationFile].found == Found::New;
    const int32_t result = installed ? saveVersion(after_) : save(store, after_);
    expect(result == VOS_OK, "%s cannot be saved after the cut: %d", nameOf(store), result);
    Aftermath healed{after_, after_};
    healed.look();
}

}  // namespace stores
