/* SPDX-License-Identifier: MIT */
#include "cutCampaign.h"

#include <sys/wait.h>
#include <unistd.h>
#include <vos.h>

#include <algorithm>
#include <filesystem>

#include "report.h"

namespace cuts {

namespace {

/* One point in so many is started up although its files are those of a point before. */
constexpr unsigned long kAnyway = 97;

std::string value(const SavedStore &store, unsigned generation, std::size_t size) {
    return store.isNew && generation == 0 ? kMissing : contentOf(store, generation, size);
}

/* The lines that start-up writes. It runs as a process of its own, as it does on a device. */
std::string linesOfStartUp() {
    int ends[2];
    std::string text;
    if (!expect(pipe(ends) == 0, "there is no pipe")) return text;
    fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        vosDebugConfig(VOS_DEBUG_ERROR);
        vosInit("journal-cuts");
        fflush(stdout);
        _exit(0);
    }
    close(ends[1]);
    char part[4096];
    for (ssize_t count = 0; (count = read(ends[0], part, sizeof part)) > 0;)
        text.append(part, static_cast<std::size_t>(count));
    close(ends[0]);
    int status = -1;
    waitpid(child, &status, 0);
    expect(status == 0, "start-up ended with status 0x%x", static_cast<unsigned>(status));
    return text;
}

/* Everything in the journal, names and bytes, in a fixed order. */
std::string journalFiles() {
    std::set<std::string> entries;
    std::error_code none;
    for (const auto &each : std::filesystem::directory_iterator(kJournal, none)) {
        std::string bytes;
        readFile(each.path(), bytes);
        entries.insert(each.path().filename().string() + "=" + bytes);
    }
    std::string text;
    for (const std::string &each : entries) text += each + ";";
    return text;
}

}  // namespace

Campaign::Campaign(RecordedFlash &flash, const RecordedSave &save)
    : flash_(flash),
      save_(save),
      oldContent_(value(*save.store, save.store->isNew ? 0 : save.generation, save.size)),
      newContent_(value(*save.store, save.generation + 1, save.size)) {
    std::string after = save.before;
    for (const Step &step : save.steps) RecordedFlash::apply(after, step);
    flash_.set(after);
    flash_.mountToRead();
    newFile_ = raw();
    flash_.set(save.before);
    flash_.mountToRead();
    oldFile_ = raw();
    for (const SavedStore &each : savedStores())
        if (std::string(each.path) != save.store->path)
            expect(readFile(each.path, others_[each.path]), "no %s", each.path);
    expect(newFile_.there && !(newFile_ == oldFile_), "the save of %s has changed nothing", save.store->name);
    expect(oldFile_.there != save.store->isNew, "%s is there, or not, before its save", save.store->name);
}

Campaign::File Campaign::raw() const {
    File file;
    file.there = readFile(save_.store->path, file.bytes);
    return file;
}

void Campaign::countRaw() {
    const File file = raw();
    const char *kind = "torn";
    if (file == oldFile_)
        kind = "old";
    else if (file == newFile_)
        kind = "new";
    else if (!file.there)
        kind = "missing";
    else if (file.bytes.empty())
        kind = "empty";
    expect(file.there || !oldFile_.there, "%s is lost", save_.store->name);
    ++raw_[kind];
}

/* Reads the files of those chips that have changed, without recovery. */
void Campaign::look() {
    flash_.mountToRead();
    for (unsigned chip = 0; chip < RECORDINGFLASH_CHIPS; ++chip) {
        if (!flash_.takeChange(chip)) continue;
        std::string &files = seenFiles_[chip];
        files = chip == 0 ? journalFiles() : "";
        for (const SavedStore &each : savedStores()) {
            if (each.chip != chip) continue;
            std::string bytes;
            const bool there = readFile(each.path, bytes);
            files += (there ? '+' : '-') + bytes;
            if (std::string(each.path) == save_.store->path) continue;
            expect(there && bytes == others_[each.path], "%s was not being saved, and has changed", each.path);
        }
    }
}

/* Reads every store with the library, which recovers. The result: the content of the one that was saved. */
std::string Campaign::readAll(const Told &told) {
    std::string reading;
    for (const SavedStore &each : savedStores()) {
        const bool own = &each == save_.store;
        if (!own && (each.isNew || std::string(each.path) == save_.store->path)) continue;
        const std::string found = each.read();
        if (!own) {
            const bool untouched = found == contentOf(each, save_.generation, kShort);
            expect(untouched, "%s was not being saved, and is read differently", each.name);
            continue;
        }
        reading = found;
        if (told) expect(found == *told, "%s was read, or reported as saved, and is now another one", each.name);
        expect(found == oldContent_ || found == newContent_, "%s is neither old nor new: %zu bytes", each.name,
               found.size());
    }
    return reading;
}

void Campaign::startUp() {
    const std::string lines = linesOfStartUp();
    expect(lines.find("Initialize") == std::string::npos, "start-up has erased a partition: %s", lines.c_str());
}

/* After the recovery: the file is the old or the new one, byte by byte, and no entry is left. */
void Campaign::checkFiles(const std::string &reading) {
    const File file = raw();
    const File &wanted = reading == newContent_ ? newFile_ : oldFile_;
    expect(file == wanted, "the file of %s is not what was read", save_.store->name);
    expect(journalFiles().find(".save=") == std::string::npos, "an entry is left in the journal");
}

void Campaign::saveAgain() {
    const std::string later = value(*save_.store, save_.generation + 2, save_.size);
    expect(save_.store->save(later), "%s cannot be saved after the cut", save_.store->name);
    expect(save_.store->read() == later, "%s is not what was saved after the cut", save_.store->name);
}

/* The flash as it is in memory is one point. The library runs on each one whose files are new. */
void Campaign::examine(const Told &told) {
    ++points_;
    look();
    countRaw();
    std::string state = told.value_or("") + '|';
    for (const std::string &each : seenFiles_) state += each;
    const bool fresh = states_.insert(std::move(state)).second;
    if (!fresh && points_ % kAnyway != 0) return;
    const std::string bytes = flash_.bytes();
    flash_.unmount();
    flash_.mountToWrite();
    /* The first one to see the entry is start-up in one half of the cases, and a reader in the other half. */
    if (++examined_ % 2 == 0) startUp();
    checkFiles(readAll(told));
    saveAgain();
    restore(bytes);
}

/* Starts up and reads, and records what that writes. The flash is afterwards what it was before. */
Campaign::Recovery Campaign::recover() {
    const std::string bytes = flash_.bytes();
    flash_.unmount();
    flash_.startRecord();
    flash_.mountToWrite();
    Recovery recovery;
    recovery.told = readAll({});
    recovery.settled = flash_.recorded();
    flash_.unmount();
    recovery.steps = flash_.record();
    restore(bytes);
    ++recoveries_;
    return recovery;
}

void Campaign::cutSave(std::size_t first, std::size_t every) {
    std::string cut = save_.before;
    for (std::size_t i = 0; i < first; ++i) RecordedFlash::apply(cut, save_.steps[i]);
    restore(cut);
    examine(first >= save_.returned ? Told(newContent_) : Told());
    const Recovery recovery = recover();
    for (std::size_t i = 0; i < recovery.steps.size(); ++i) {
        flash_.apply(recovery.steps[i]);
        if ((i + 1) % every == 0) examine(i + 1 >= recovery.settled ? Told(recovery.told) : Told());
    }
}

void Campaign::cutThrice(std::mt19937 &random, std::size_t points) {
    const auto below = [&](std::size_t limit) { return static_cast<std::size_t>(random()) % limit; };
    for (const unsigned long end = points_ + points; points_ < end;) {
        std::string cut = save_.before;
        const std::size_t first = 1 + below(save_.steps.size());
        for (std::size_t i = 0; i < first; ++i) RecordedFlash::apply(cut, save_.steps[i]);
        restore(cut);
        const Recovery second = recover();
        if (second.steps.empty()) continue;
        const std::size_t count = 1 + below(second.steps.size());
        for (std::size_t i = 0; i < count; ++i) flash_.apply(second.steps[i]);
        const Recovery third = recover();
        const bool settled = count >= second.settled;
        if (settled) expect(third.told == second.told, "%s was read, and is now another one", save_.store->name);
        if (third.steps.empty()) continue;
        const std::size_t last = 1 + below(third.steps.size());
        for (std::size_t i = 0; i < last; ++i) flash_.apply(third.steps[i]);
        examine(settled || last >= third.settled ? Told(third.told) : Told());
    }
}

void Campaign::tell(const std::string &what) const {
    printf("cuts %s\tpoints %lu\tstates %zu\texamined %lu\trecoveries %lu", what.c_str(), points_, states_.size(),
           examined_, recoveries_);
    for (const char *const kind : {"old", "new", "torn", "empty", "missing"}) {
        const auto found = raw_.find(kind);
        printf("\t%s %lu", kind, found == raw_.end() ? 0 : found->second);
    }
    printf("\n");
    fflush(stdout);
}

}  // namespace cuts
