/* SPDX-License-Identifier: MIT */
/* Tries every point at which a save can be cut.
 *
 *     replay save SIZE                      makes everything, and saves each store between two marks
 *     replay cut SIZE DIRECTORY [EVERY]     tries every point of one save, or one in EVERY
 *
 * DIRECTORY/before is the flash before a save, DIRECTORY/steps what the save did to it: words written, blocks erased.
 * DIRECTORY/save names the save: a store, and how often each store had been saved before. The flash is built
 * in memory (mtdram). After each step it is mounted and examined.
 */
#include <fcntl.h>
#include <linux/blkpg.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>
#include <vos.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "aftermath.h"
#include "report.h"

using stores::Aftermath;
using stores::contentSize;
using stores::Generations;
using stores::kFactory;
using stores::kStores;
using stores::kSystem;
using stores::makeAll;
using stores::nameOf;
using stores::save;
using stores::Store;
using stores::storeOf;

namespace {

constexpr unsigned kFirst = 2;
constexpr off_t kMarks = 1 << 20;      /* in the boot loader's flash, behind every boot loader */
constexpr unsigned kSystemSaves = 500; /* more than fit into one block of the flash */
constexpr unsigned kFactorySaves = 900;

struct Part {
    const char *name;
    long long at;
    long long size;
    const char *where; /* "" is not mounted */
};
constexpr Part kParts[] = {{"replay-boot", 0, 2 << 20, ""},
                           {"replay-flash", 2 << 20, 8 << 20, "/flash"},
                           {"replay-app", 10 << 20, 16 << 20, "/app"}};

struct Step {
    uint32_t at;
    uint32_t value;
    uint32_t bytes; /* 4 is a word; more is an erased block */
};

void mark(uint32_t number) {
    const int flash = open("/dev/mtd0", O_RDWR | O_CLOEXEC);
    expect(pwrite(flash, &number, sizeof number, kMarks + off_t{4} * number) == sizeof number, "no mark can be put");
    close(flash);
}

/* The host reads the names: mark N is written before save N. */
int saves() {
    Generations now;
    now.fill(kFirst);
    makeAll(now);
    sync();
    uint32_t number = 0;
    const auto one = [&](Store store) {
        printf("save %u %s", number, nameOf(store));
        for (const unsigned each : now) printf(" %u", each);
        printf("\n");
        ++now[store];
        mark(number++);
        const int32_t result = save(store, now);
        expect(result == VOS_OK, "%s is saved with %d", nameOf(store), result);
    };
    for (unsigned store = 0; store < kStores; ++store) one(Store{store});
    for (unsigned i = 0; i < kSystemSaves; ++i) one(kSystem);
    for (unsigned i = 0; i < kFactorySaves; ++i) one(kFactory);
    mark(number);
    return g_notSo != 0;
}

/* The device node of a flash by its name. */
std::string nodeOf(const std::string &name, const char *kind) {
    for (const auto &each : std::filesystem::directory_iterator("/sys/class/mtd")) {
        std::string found;
        std::getline(std::ifstream(each.path() / "name") >> std::ws, found);
        const std::string device = each.path().filename();
        if (found == name && !device.ends_with("ro")) return std::string("/dev/") + kind + device.substr(3);
    }
    expect(false, "there is no flash %s", name.c_str());
    exit(1);
}

class Flash {
  public:
    explicit Flash(std::string before) : bytes_(std::move(before)) {
        file_ = open(nodeOf("mtdram test device", "mtd").c_str(), O_RDWR | O_CLOEXEC);
        put(0, bytes_);
        for (const Part &part : kParts) add(part);
        for (std::size_t i = 0; i < std::size(kParts); ++i) nodes_[i] = nodeOf(kParts[i].name, "mtdblock");
        szBootLoaderFileName = nodes_[0].c_str();
    }

    void apply(const Step &step) {
        std::string bytes(step.bytes, '\xFF');
        if (step.bytes == sizeof step.value) memcpy(bytes.data(), &step.value, sizeof step.value);
        bytes_.replace(step.at, step.bytes, bytes);
        for (std::size_t i = 0; i < std::size(kParts); ++i)
            if (step.at >= kParts[i].at && step.at < kParts[i].at + kParts[i].size) detach(i);
        put(step.at, bytes);
    }

    /* What is mounted and has not been written to since stays mounted. */
    void attachToRead() { attach(MS_RDONLY); }

    /* As start-up does: with a file system that repairs itself. Afterwards the flash is set to what it was before.
     */
    template <class Code>
    void trial(Code code) {
        detachAll();
        attach(0);
        code();
        detachAll();
        put(0, bytes_);
    }

  private:
    void attach(unsigned long flags) {
        for (std::size_t i = 0; i < std::size(kParts); ++i) {
            const Part &part = kParts[i];
            if (*part.where == '\0' || mounted_[i]) continue;
            mounted_[i] = expect(mount(nodes_[i].c_str(), part.where, "jffs2", flags, nullptr) == 0,
                                 "%s cannot be mounted: %s", part.where, strerror(errno));
        }
    }
    void detach(std::size_t part) {
        if (mounted_[part]) expect(umount(kParts[part].where) == 0, "%s is busy", kParts[part].where);
        mounted_[part] = false;
    }
    void detachAll() {
        for (std::size_t i = 0; i < std::size(kParts); ++i) detach(i);
    }

    void put(off_t at, const std::string &bytes) const {
        for (std::size_t done = 0; done < bytes.size();) {
            const ssize_t count = pwrite(file_, &bytes[done], bytes.size() - done, at + static_cast<off_t>(done));
            if (!expect(count > 0, "the flash in memory cannot be written: %s", strerror(errno))) exit(1);
            done += static_cast<std::size_t>(count);
        }
    }

    /* An earlier run may have added it. */
    void add(const Part &part) const {
        blkpg_partition partition{};
        partition.start = part.at;
        partition.length = part.size;
        partition.pno = static_cast<int>(&part - kParts);
        strncpy(partition.devname, part.name, sizeof partition.devname - 1);
        blkpg_ioctl_arg order{BLKPG_ADD_PARTITION, 0, sizeof partition, &partition};
        expect(ioctl(file_, BLKPG, &order) == 0 || errno == EINVAL, "%s cannot be added: %s", part.name,
               strerror(errno));
    }

    std::string bytes_;
    std::array<std::string, std::size(kParts)> nodes_;
    std::array<bool, std::size(kParts)> mounted_{};
    int file_;
};

std::string whole(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

/* Examines the flash as it is. For a state that has not been seen before, start-up runs too, and the flash is repaired.
 */
class Trial {
  public:
    Trial(Flash &flash, Store store, const Generations &before, const Generations &after)
        : flash_(flash), store_(store), aftermath_(before, after) {}

    const std::string &at() {
        flash_.attachToRead();
        aftermath_.look();
        outcome_ = aftermath_.outcome();
        ++points_[outcome_];
        if (seen_.insert(aftermath_.state()).second) {
            flash_.trial([this] {
                aftermath_.startUp();
                aftermath_.repair(store_);
            });
        }
        return outcome_;
    }

    /* The same as at the point before: nothing that is examined has changed. */
    const std::string &unchanged() {
        ++points_[outcome_];
        return outcome_;
    }

    void tell() const {
        for (const auto &[outcome, count] : points_)
            printf("%u points of %s: %s\n", count, nameOf(store_), outcome.c_str());
        printf("%zu states of %s started up\n", seen_.size(), nameOf(store_));
    }

  private:
    Flash &flash_;
    Store store_;
    Aftermath aftermath_;
    std::string outcome_;
    std::map<std::string, unsigned> points_;
    std::set<std::string> seen_;
};

bool has(const std::string &outcome, const char *kind) { return outcome.find(kind) != std::string::npos; }

/* Whether a step changes what is examined. */
bool visible(const Step &step) { return step.at < contentSize + 64 || step.at >= kParts[1].at; }

int cut(const std::string &directory, std::size_t every) {
    std::ifstream description(directory + "/save");
    std::string name;
    std::getline(description, name, '\t');
    const Store store = storeOf(name);
    Generations before;
    for (unsigned &each : before) description >> each;
    Generations after = before;
    ++after.at(store);
    const std::string bytes = whole(directory + "/steps");
    Flash flash{whole(directory + "/before")};
    Trial trial{flash, store, before, after};
    const std::string first = trial.at();
    expect(!has(first, "=new") && !has(first, "=torn"), "before the save: %s", first.c_str());
    const std::size_t steps = bytes.size() / sizeof(Step);
    bool touched = false; /* since the last examination */
    for (std::size_t i = 0; i < steps; ++i) {
        Step step;
        memcpy(&step, &bytes[i * sizeof step], sizeof step);
        flash.apply(step);
        touched = touched || visible(step);
        const bool last = i + 1 == steps;
        if (!last && i % every != 0) continue;
        const std::string &outcome = touched || last ? trial.at() : trial.unchanged();
        touched = false;
        if (last) expect(!has(outcome, "=old") && !has(outcome, "=torn"), "after the save: %s", outcome.c_str());
    }
    trial.tell();
    return g_notSo != 0;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: replay save SIZE | replay cut SIZE DIRECTORY [EVERY]\n");
        return 2;
    }
    contentSize = strtoul(argv[2], nullptr, 10);
    if (strcmp(argv[1], "save") == 0) return saves();
    return argc > 3 ? cut(argv[3], argc > 4 ? strtoul(argv[4], nullptr, 10) : 1) : 2;
}
