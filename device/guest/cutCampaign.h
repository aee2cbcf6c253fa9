/* SPDX-License-Identifier: MIT */
/* One save by way of the journal, cut after every word that it wrote; then its recovery, cut after every word as well.
 */
#pragma once

#include <map>
#include <optional>
#include <random>
#include <set>
#include <unordered_set>

#include "recordedFlash.h"
#include "savedStores.h"

namespace cuts {

/* A save as it was recorded. */
struct RecordedSave {
    const SavedStore *store;
    unsigned generation; /* of the content before; of every other store as well */
    std::size_t size;
    std::string before; /* the flash */
    Steps steps;
    std::size_t returned; /* so many steps had been made when the save returned */
};

class Campaign {
  public:
    Campaign(RecordedFlash &flash, const RecordedSave &save);

    /* Cuts the save after `first` steps; then cuts its recovery after each step, or after one in `every`. */
    void cutSave(std::size_t first, std::size_t every);

    /* Cuts the save, its recovery, and the recovery after that, at random, until so many points have been examined. */
    void cutThrice(std::mt19937 &random, std::size_t points);

    void tell(const std::string &what) const;

  private:
    /* What a reader of the store was told, and after how many steps. From then on the store must stay so. */
    struct Recovery {
        Steps steps;
        std::size_t settled;
        std::string told;
    };
    struct File {
        bool there = false;
        std::string bytes;
        bool operator==(const File &) const = default;
    };
    using Told = std::optional<std::string>;

    void examine(const Told &told);
    void look();
    void countRaw();
    Recovery recover();
    std::string readAll(const Told &told);
    void startUp();
    void checkFiles(const std::string &reading);
    void saveAgain();
    void restore(const std::string &bytes) { flash_.set(bytes); }
    [[nodiscard]] File raw() const;
    [[nodiscard]] std::string content(unsigned later) const;

    RecordedFlash &flash_;
    RecordedSave save_;
    std::string oldContent_, newContent_;
    File oldFile_, newFile_;
    std::map<std::string, std::string> others_; /* the other files, as they must stay */
    std::array<std::string, RECORDINGFLASH_CHIPS> seenFiles_;
    std::unordered_set<std::string> states_;
    std::map<std::string, unsigned long> raw_;
    unsigned long points_ = 0, examined_ = 0, recoveries_ = 0;
};

}  // namespace cuts
