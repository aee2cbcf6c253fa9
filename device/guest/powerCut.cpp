/* SPDX-License-Identifier: MIT */
/* Saves again and again until the power is cut. After each cut, examines what is on flash.
 *
 *     powerCut make SIZE PROGRESS           everything on flash, from nothing
 *     powerCut hammer SIZE PROGRESS SEED    saves one store after the other, until the power is cut
 *     powerCut look SIZE PROGRESS           examines what the last cut has left; starts up, checks, repairs
 *
 * With the environment variable JOURNAL every program saves by way of the journal in that directory.
 * PROGRESS is a file that is not on the flash, with a line "begin STORE" or "done STORE" at each step.
 */
#include <fcntl.h>
#include <unistd.h>
#include <vos.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>

#include "aftermath.h"
#include "report.h"

using stores::Aftermath;
using stores::contentSize;
using stores::Generations;
using stores::kStores;
using stores::makeAll;
using stores::nameOf;
using stores::save;
using stores::Store;
using stores::storeOf;

namespace {

constexpr unsigned kFirst = 2; /* the backup is of the generation before */

struct Progress {
    Generations done;
    Store begun = kStores; /* the save that was cut; none */
};

Progress readProgress(const char *path) {
    Progress progress;
    progress.done.fill(kFirst);
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        const std::size_t blank = line.find(' ');
        const Store store = storeOf(line.substr(blank + 1));
        if (line.starts_with("done")) ++progress.done.at(store);
        progress.begun = line.starts_with("begin") ? store : kStores;
    }
    return progress;
}

class Notes {
  public:
    explicit Notes(const char *path) : file_(open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644)) {}
    void add(const char *what, Store store) const {
        const std::string line = std::string(what) + " " + nameOf(store) + "\n";
        expect(write(file_, line.data(), line.size()) == static_cast<ssize_t>(line.size()),
               "progress cannot be written");
    }

  private:
    int file_;
};

int make(const char *path) {
    makeAll(readProgress(path).done);
    sync();
    return g_notSo != 0;
}

[[noreturn]] void hammer(const char *path, unsigned seed) {
    Generations now = readProgress(path).done;
    const Notes notes{path};
    std::mt19937 random{seed};
    printf("saving\n");
    fflush(stdout);
    for (;;) {
        const Store store{static_cast<unsigned>(random() % kStores)};
        ++now[store];
        notes.add("begin", store);
        const int32_t result = save(store, now);
        if (!expect(result == 0, "%s is saved with %d", nameOf(store), result)) _exit(1);
        notes.add("done", store);
    }
}

int look(const char *path) {
    const Progress progress = readProgress(path);
    Generations after = progress.done;
    if (progress.begun != kStores) ++after[progress.begun];
    Aftermath aftermath{progress.done, after};
    if (szVosJournalDir != nullptr) Aftermath::recover();
    aftermath.look();
    if (progress.begun == kStores)
        printf("cut between two saves\n");
    else
        printf("cut while saving %s: %s\n", nameOf(progress.begun), aftermath.outcome().c_str());
    aftermath.startUp();
    if (progress.begun != kStores) {
        aftermath.repair(progress.begun);
        Notes{path}.add("done", progress.begun);
    }
    return g_notSo != 0;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 4) {
        fprintf(stderr, "usage: powerCut make|hammer|look SIZE PROGRESS [SEED]\n");
        return 2;
    }
    szVosJournalDir = getenv("JOURNAL");
    contentSize = strtoul(argv[2], nullptr, 10);
    if (strcmp(argv[1], "make") == 0) return make(argv[3]);
    if (strcmp(argv[1], "hammer") == 0 && argc > 4)
        hammer(argv[3], static_cast<unsigned>(strtoul(argv[4], nullptr, 10)));
    return look(argv[3]);
}
