/* SPDX-License-Identifier: MIT */
/* vosctl complete: what the shells' completion asks for while a command line is typed. */
#include <algorithm>
#include <set>

#include "../base/words.h"
#include "../flash/itemTable.h"
#include "../processes/socketDirectory.h"
#include "commands.h"

namespace vosctl {

namespace {

using Words = std::vector<std::string>;

/* Somebody is typing: what cannot be looked at is no name, and no complaint. */
std::set<std::string> reachableNames() {
    std::set<std::string> names;
    try {
        for (const SocketEntry &entry : readSocketDirectory())
            if (alive(entry) && entry.kind == SocketEntry::Kind::normal) names.insert(printable(entry.name));
    } catch (const Failure &) {
        names.clear();
    }
    return names;
}

std::set<std::string> itemNames() {
    std::set<std::string> names;
    for (const Item &item : items()) names.insert(item.name);
    return names;
}

/* Where the words before the last one lead: the command, and how many of its arguments are there. */
struct Place {
    const CLI::App *command;
    std::size_t arguments = 0;
    bool optionValue = false; /* the last word belongs to an option */
};

const CLI::Option *optionOf(const CLI::App *command, const std::string &word) {
    for (; command != nullptr; command = command->get_parent())
        if (const CLI::Option *const option = command->get_option_no_throw(word)) return option;
    return nullptr;
}

const CLI::App *commandOf(const CLI::App *parent, const std::string &word) {
    for (const CLI::App *const each : parent->get_subcommands([](const CLI::App *) { return true; }))
        if (each->get_name() == word) return each;
    return nullptr;
}

Place placeOf(const CLI::App &app, const Words &words) {
    Place place{&app};
    for (std::size_t index = 0; index + 1 < words.size(); ++index) {
        const std::string &word = words[index];
        if (place.optionValue) {
            place.optionValue = false;
        } else if (word.starts_with('-')) {
            const CLI::Option *const option = optionOf(place.command, word);
            place.optionValue = option != nullptr && option->get_items_expected_max() > 0;
        } else if (const CLI::App *const command = commandOf(place.command, word)) {
            place.command = command;
        } else {
            ++place.arguments;
        }
    }
    return place;
}

void addOptions(std::set<std::string> &candidates, const CLI::App *command) {
    for (; command != nullptr; command = command->get_parent())
        for (const CLI::Option *const option : command->get_options())
            for (const std::string &name : option->get_lnames()) candidates.insert("--" + name);
}

/* What the argument at the place can be, when that is known. */
void addArguments(std::set<std::string> &candidates, const Place &place) {
    std::size_t index = 0;
    for (const CLI::Option *const option : place.command->get_options()) {
        if (!option->get_positional()) continue;
        const bool here = index == place.arguments || (index < place.arguments && option->get_items_expected_max() > 1);
        if (here && option->get_description() == kNameDescription) candidates = reachableNames();
        if (here && option->get_description() == kItemDescription) candidates = itemNames();
        if (here && option->get_name() == "LEVEL") candidates.merge(levelNames());
        ++index;
    }
}

std::set<std::string> candidatesFor(const CLI::App &app, const Words &words) {
    std::set<std::string> candidates;
    const Place place = placeOf(app, words);
    const std::string last = words.empty() ? "" : words.back();
    if (place.optionValue) return candidates;
    if (last.starts_with('-')) {
        addOptions(candidates, place.command);
    } else if (place.arguments == 0 && place.command->get_require_subcommand_min() > 0) {
        for (const CLI::App *const each : place.command->get_subcommands([](const CLI::App *) { return true; }))
            if (!each->get_group().empty()) candidates.insert(each->get_name());
    } else {
        addArguments(candidates, place);
    }
    std::erase_if(candidates, [&](const std::string &candidate) { return !candidate.starts_with(last); });
    return candidates;
}

int print(Output &out, const std::set<std::string> &lines) {
    for (const std::string &line : lines) out.raw(line + "\n");
    return kDone;
}

}  // namespace

void addCompleteCommand(CLI::App &app, Context &context) {
    CLI::App *const complete = app.add_subcommand("complete", "What the shells' completion asks for")->group("");
    complete->require_subcommand(1);
    onRun(complete->add_subcommand("names", "The reachable names"), context,
          [](Output &out) { return print(out, reachableNames()); });

    const auto words = std::make_shared<Words>();
    CLI::App *const line = complete->add_subcommand("words", "What the last of some words can become");
    line->add_option("WORD", *words, "The words behind \"vosctl\", behind --; the last one is completed");
    onRun(line, context, [&app, words](Output &out) { return print(out, candidatesFor(app, *words)); });
}

}  // namespace vosctl
