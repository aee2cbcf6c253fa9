/* SPDX-License-Identifier: MIT */
/* vosctl complete: the shell's completion calls it while a command line is typed. */
#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>

#include "../base/words.h"
#include "../flash/itemTable.h"
#include "../processes/socketDirectory.h"
#include "commands.h"
#include "help.h"

namespace vosctl {

namespace {

using Words = std::vector<std::string>;
using Candidates = std::map<std::string, std::string>; /* each with a description, which may be empty */

/* Finds the words to which a typed word can be completed. */
struct Completion {
    Candidates candidates;
    bool files = false;
    bool directories = false;
};

/* The user is typing, so nothing is reported: a directory that cannot be read has no names. */
Candidates reachableNames() {
    Candidates names;
    try {
        for (const SocketEntry &entry : readSocketDirectory())
            if (alive(entry) && entry.kind == SocketEntry::Kind::normal)
                names[printable(entry.name)] = entry.owners.empty() ? "" : printable(entry.owners.front().program);
    } catch (const Failure &) {
        names.clear();
    }
    return names;
}

Candidates itemNames() {
    Candidates names;
    for (const Item &item : items()) names[item.name] = limitOf(item);
    return names;
}

Candidates levelCandidates() {
    Candidates names;
    for (const Level &level : levels()) names[std::string(level.name)] = level.meaning;
    return names;
}

Candidates entryForms() {
    return {{"file:", "PATH=LOCAL: add a file"},
            {"dir:", "PATH: add a directory"},
            {"delete-file:", "PATH: delete a file"},
            {"delete-dir:", "PATH: delete a directory"},
            {"oem:", "FIELD=TEXT: set an OEM field"}};
}

/* What the words before the last one mean: the command, and the number of its arguments that were given. */
struct Place {
    const CLI::App *command;
    std::size_t arguments = 0;
    const CLI::Option *valueOf = nullptr; /* the option to which the last word belongs */
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
        if (place.valueOf != nullptr) {
            place.valueOf = nullptr;
        } else if (word.starts_with('-')) {
            const CLI::Option *const option = optionOf(place.command, word);
            if (option != nullptr && option->get_items_expected_max() > 0) place.valueOf = option;
        } else if (const CLI::App *const command = commandOf(place.command, word)) {
            place.command = command;
        } else {
            ++place.arguments;
        }
    }
    return place;
}

void addOptions(Candidates &candidates, const CLI::App *command) {
    for (; command != nullptr; command = command->get_parent())
        for (const CLI::Option *const option : command->get_options())
            for (const std::string &name : option->get_lnames()) candidates["--" + name] = option->get_description();
}

void addCommands(Candidates &candidates, const CLI::App &command) {
    for (const CLI::App *const each : commandsBelow(command)) candidates[each->get_name()] = each->get_description();
}

/* The values that an argument or an option can have. */
Completion valuesFor(const CLI::Option &option) {
    Completion completion;
    for (const std::string &value : valuesOf(option)) completion.candidates[value] = "";
    const std::string kind = metavariableOf(option);
    if (kind == "NAME") completion.candidates = reachableNames();
    if (kind == "ITEM") completion.candidates = itemNames();
    if (kind == "LEVEL") completion.candidates = levelCandidates();
    if (kind == "ENTRY") completion.candidates = entryForms();
    completion.files = kind == "FILE" || kind == "PAYLOAD" || kind == "IMAGE";
    completion.directories = kind == "DIR";
    return completion;
}

Completion argumentAt(const Place &place) {
    std::size_t index = 0;
    for (const CLI::Option *const option : place.command->get_options()) {
        if (!option->get_positional()) continue;
        if (index == place.arguments || (index < place.arguments && option->get_items_expected_max() > 1))
            return valuesFor(*option);
        ++index;
    }
    return {};
}

/* After "help" come the words of a command. */
Completion commandWords(const CLI::App &app, const Words &words) {
    const CLI::App *command = &app;
    const auto help = static_cast<std::size_t>(std::find(words.begin(), words.end(), "help") - words.begin());
    for (std::size_t index = help + 1; index + 1 < words.size() && command != nullptr; ++index)
        command = commandOf(command, words[index]);
    Completion completion;
    if (command != nullptr) addCommands(completion.candidates, *command);
    return completion;
}

Completion completionAt(const CLI::App &app, const Place &place, const Words &words) {
    Completion completion;
    if (place.valueOf != nullptr) return valuesFor(*place.valueOf);
    if (place.command->get_name() == "help") return commandWords(app, words);
    if (words.empty() || !words.back().starts_with('-')) {
        if (place.arguments > 0 || place.command->get_require_subcommand_min() == 0) return argumentAt(place);
        addCommands(completion.candidates, *place.command);
        return completion;
    }
    const std::size_t equals = words.back().find('=');
    if (equals == std::string::npos) {
        addOptions(completion.candidates, place.command);
    } else if (const CLI::Option *const option = optionOf(place.command, words.back().substr(0, equals))) {
        for (const auto &[value, description] : valuesFor(*option).candidates)
            completion.candidates[words.back().substr(0, equals + 1) + value] = description;
    }
    return completion;
}

Completion completionFor(const CLI::App &app, const Words &words) {
    Completion completion = completionAt(app, placeOf(app, words), words);
    const std::string last = words.empty() ? "" : words.back();
    std::erase_if(completion.candidates, [&](const auto &each) { return !each.first.starts_with(last); });
    return completion;
}

int print(Output &out, const Completion &completion, bool describe) {
    for (const auto &[candidate, description] : completion.candidates) {
        out.raw(candidate);
        if (describe && !description.empty()) out.raw("\t" + description);
        out.raw("\n");
    }
    /* No candidate has a slash. */
    if (describe && completion.files) out.raw("/files\n");
    if (describe && completion.directories) out.raw("/directories\n");
    return kDone;
}

/* The data from which the manual pages are made. */
Json jsonOfHelp(const CommandHelp &help) {
    const auto entries = [](const std::vector<HelpEntry> &all) {
        Json array = Json::array();
        for (const HelpEntry &entry : all) array.push_back({{"title", entry.title}, {"text", entry.text}});
        return array;
    };
    return {{"words", help.words},
            {"group", help.group},
            {"description", help.description},
            {"usage", help.usage},
            {"arguments", entries(help.arguments)},
            {"options", entries(help.options)},
            {"notes", help.notes},
            {"examples", help.examples}};
}

void addTree(Json &commands, const CLI::App &command) {
    commands.push_back(jsonOfHelp(helpOf(command)));
    for (const CLI::App *const each : commandsBelow(command)) addTree(commands, *each);
}

}  // namespace

void addCompleteCommand(Command app, Context &context) {
    Command complete = app.group("complete", "Print what the completion of the shells needs");
    complete.hide();
    complete.command("names", "The reachable names").onRun(context, [](Output &out) {
        return print(out, {reachableNames()}, false);
    });

    const auto words = std::make_shared<Words>();
    const auto describe = std::make_shared<bool>(false);
    Command line = complete.command("words", "Print the words to which the last word can be completed");
    line.argument("WORD", *words, "The words behind \"vosctl\", behind --; the last one is completed");
    line.flag("--describe", *describe,
              "A description behind each, after a tab; /files or /directories where those fit too");
    line.onRun(context, [app, words, describe](Output &out) {
        return print(out, completionFor(app.parser(), *words), *describe);
    });

    complete.command("tree", "All commands with their help").onRun(context, [app](Output &out) {
        Json commands = Json::array();
        addTree(commands, app.parser());
        out.raw(jsonOf(commands).dump(1) + "\n");
        return kDone;
    });
}

}  // namespace vosctl
