/* SPDX-License-Identifier: MIT */
/* What a cut during one save has left, and what start-up and the library's calls do then. */
#pragma once

#include <array>

#include "stores.h"

namespace stores {

class Aftermath {
  public:
    /* The generations before the save that was cut, and those after it. Without a save they are the same. */
    Aftermath(const Generations &before, const Generations &after);

    /* With the journal: starts up and reads everything, which completes what was interrupted. */
    static void recover();

    /* Looks at every object. What no save touched must be whole, what was touched must be what a cut may leave. */
    void look();

    /* The outcome of each object that the save changes, as "name=outcome" with commas between them. */
    [[nodiscard]] std::string outcome() const;

    /* Everything that was read; different for different states of the flash. */
    [[nodiscard]] const std::string &state() const { return state_; }

    /* Starts up as every process does. Checks that start-up handles what look() found as it is described, and that the
     * calls which read return what is described. */
    void startUp() const;

    /* What an application can do: repair what cannot be used, and save again. Then everything must be as without a
     * cut. */
    void repair(Store store) const;

  private:
    static constexpr std::size_t kObjects = 10;

    struct Seen {
        std::string before;
        std::string after;
        Found found = Found::Lost;
        std::size_t length = 0;
        [[nodiscard]] bool changed() const { return before != after; }
        [[nodiscard]] bool usable() const { return found == Found::Old || found == Found::New; }
    };

    Generations after_;
    std::array<Seen, kObjects> seen_;
    std::string state_;
};

}  // namespace stores
