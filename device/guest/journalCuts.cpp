/* SPDX-License-Identifier: MIT */
/* Tries every point at which a save by way of the journal can be cut, and every point of the recovery after it.
 *
 *     journalCuts record SIZE DIRECTORY     makes every store, and records saves of each into the directory
 *     journalCuts cut SIZE DIRECTORY        cuts them, as DIRECTORY/units says, one line for each unit of work:
 *         cut NAME FROM TO STEP EVERY           after FROM, FROM+STEP, ... steps, below TO; the recovery of each one
 *                                               after one step in EVERY
 *         thrice NAME SEED COUNT                three cuts in a row at random, COUNT times
 *
 * NAME is a file of the directory without its suffix. The flash is that of device/module/recordingflash.c.
 */
#include <unistd.h>
#include <vos.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "cutCampaign.h"
#include "report.h"

using namespace cuts;

namespace {

constexpr unsigned kMostSaves = 300; /* of one store, until the data of one has crossed the end of a block */
constexpr unsigned kFirst = 1;

/* Whether a save wrote its data to the end of one block and the beginning of the next. An erased block is marked at its
 * beginning; that is no data of a save. */
bool crosses(const Steps &steps) {
    constexpr unsigned kCleanMarker = 12;
    std::array<std::set<uint32_t>, RECORDINGFLASH_CHIPS> blocks;
    for (const Step &step : steps) {
        if ((step.at & RECORDINGFLASH_ERASED) != 0 || step.at % RECORDINGFLASH_BLOCK < kCleanMarker) continue;
        blocks[step.at / RECORDINGFLASH_CHIP].insert(step.at / RECORDINGFLASH_BLOCK);
    }
    return std::ranges::any_of(blocks, [](const auto &each) { return each.size() > 1; });
}

void write(const std::string &path, const RecordedSave &save) {
    std::ofstream file(path, std::ios::binary);
    file << save.store->name << '\n' << save.generation << ' ' << save.returned << ' ' << save.steps.size() << '\n';
    file << save.before;
    file.write(reinterpret_cast<const char *>(save.steps.data()),
               static_cast<std::streamsize>(save.steps.size() * sizeof(Step)));
    expect(static_cast<bool>(file.flush()), "%s cannot be written", path.c_str());
}

const SavedStore *storeOf(const std::string &name) {
    for (const SavedStore &each : savedStores())
        if (name == each.name) return &each;
    expect(false, "there is no store %s", name.c_str());
    exit(1);
}

RecordedSave readSave(const std::string &path, std::size_t size) {
    std::ifstream file(path, std::ios::binary);
    std::string name;
    std::size_t count = 0;
    RecordedSave save{nullptr, 0, size, {}, {}, 0};
    std::getline(file, name);
    file >> save.generation >> save.returned >> count;
    file.get();
    save.store = storeOf(name);
    save.before.resize(std::size_t{RECORDINGFLASH_CHIPS} * RECORDINGFLASH_CHIP);
    save.steps.resize(count);
    file.read(save.before.data(), static_cast<std::streamsize>(save.before.size()));
    file.read(reinterpret_cast<char *>(save.steps.data()), static_cast<std::streamsize>(count * sizeof(Step)));
    if (!expect(static_cast<bool>(file), "%s cannot be read", path.c_str())) exit(1);
    return save;
}

void makeAll() {
    vosInit("journal-cuts"); /* makes the partitions */
    for (const SavedStore &store : savedStores())
        expect(store.isNew || store.save(contentOf(store, kFirst, kShort)), "%s cannot be made", store.name);
}

/* Saves the store, and goes back to what it was: every store has the first content before a save that is recorded. */
RecordedSave recordSave(RecordedFlash &flash, const SavedStore &store, std::size_t size) {
    if (store.isNew)
        vosFileDelete(store.path);
    else
        expect(store.save(contentOf(store, kFirst, size)), "%s cannot be saved", store.name);
    flash.unmount();
    RecordedSave save{&store, kFirst, size, flash.bytes(), {}, 0};
    flash.startRecord();
    flash.mountToWrite();
    expect(store.save(contentOf(store, kFirst + 1, size)), "%s cannot be saved", store.name);
    save.returned = flash.recorded();
    flash.unmount();
    save.steps = flash.record();
    std::string after = save.before;
    for (const Step &step : save.steps) RecordedFlash::apply(after, step);
    expect(after == flash.bytes(), "the record of %s does not lead to the flash that the save left", store.name);
    flash.mountToWrite();
    return save;
}

/* Two saves of each store: one that stays in its block, and one that crosses the end of a block. */
void record(RecordedFlash &flash, std::size_t size, const std::string &directory) {
    flash.mountToWrite();
    makeAll();
    for (const SavedStore &store : savedStores()) {
        bool within = false, split = false;
        for (unsigned i = 0; i < kMostSaves && !(within && split); ++i) {
            const RecordedSave save = recordSave(flash, store, size);
            bool &known = crosses(save.steps) ? split : within;
            if (known) continue;
            known = true;
            const std::string name = std::string(store.name) + (split && &known == &split ? ", split" : "");
            write(directory + "/" + name + ".save", save);
            printf("recorded %s\t%zu\n", name.c_str(), save.steps.size());
            fflush(stdout);
        }
        expect(within && split, "%s: no save %s the end of a block", store.name, split ? "stays away from" : "crosses");
        for (const SavedStore &each : savedStores())
            if (!each.isNew) expect(each.save(contentOf(each, kFirst, kShort)), "%s cannot be saved", each.name);
    }
}

void runUnit(RecordedFlash &flash, std::size_t size, const std::string &directory, const std::string &unit) {
    std::istringstream words(unit);
    std::string what, name;
    std::getline(words, what, '\t');
    std::getline(words, name, '\t');
    Campaign campaign{flash, readSave(directory + "/" + name + ".save", size)};
    if (what == "cut") {
        std::size_t from = 0, to = 0, step = 1, every = 1;
        words >> from >> to >> step >> every;
        for (; from < to; from += step) campaign.cutSave(from, every);
    } else {
        unsigned seed = 0;
        std::size_t count = 0;
        words >> seed >> count;
        std::mt19937 random{seed};
        campaign.cutThrice(random, count);
    }
    campaign.tell(unit);
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 4) {
        fprintf(stderr, "usage: journalCuts record|cut SIZE DIRECTORY\n");
        return 2;
    }
    szVosJournalDir = kJournal;
    vosDebugConfig(0);
    const std::size_t size = strtoul(argv[2], nullptr, 10);
    const std::string directory = argv[3];
    RecordedFlash flash;
    if (strcmp(argv[1], "record") == 0) {
        record(flash, size, directory);
        return g_notSo != 0;
    }
    std::ifstream units(directory + "/units");
    for (std::string unit; std::getline(units, unit);) {
        runUnit(flash, size, directory, unit);
        if (g_notSo != 0) return 1;
    }
    return 0;
}
