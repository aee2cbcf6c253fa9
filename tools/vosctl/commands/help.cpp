/* SPDX-License-Identifier: MIT */
/* vosctl help, and what every --help prints. */
#include "help.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <set>
#include <sstream>

#include "../base/words.h"
#include "commands.h"

namespace vosctl {

namespace {

constexpr std::size_t kLineWidth = 80;
constexpr std::size_t kWidestTitle = 24; /* after a wider title the text begins on the next line */
constexpr const char *kExamples = "Examples:\n";

bool listed(const CLI::App &command) { return !command.get_group().empty(); }

std::string wordsOf(const CLI::App &command) {
    if (command.get_parent() == nullptr) return "";
    const std::string before = wordsOf(*command.get_parent());
    return before + (before.empty() ? "" : " ") + command.get_name();
}

/* "-c, --count N" */
std::string titleOf(const CLI::Option &option) {
    if (option.get_positional()) return option.get_name(true, false);
    std::string title;
    for (const std::string &name : option.get_snames()) title += (title.empty() ? "-" : ", -") + name;
    for (const std::string &name : option.get_lnames()) title += (title.empty() ? "--" : ", --") + name;
    if (option.get_items_expected_max() == 0)
        return title + (valuesOf(option).empty() ? "" : "[=" + metavariableOf(option) + "]");
    for (int count = 0; count < std::max(1, option.get_expected_min()); ++count) title += " " + metavariableOf(option);
    return title;
}

std::string textOf(const CLI::Option &option) {
    const std::string byDefault = option.get_default_str();
    return option.get_description() + (byDefault.empty() ? "" : " (default " + byDefault + ")");
}

std::string usageOf(const CLI::App &command) {
    std::string usage;
    const auto options = command.get_options();
    if (std::any_of(options.begin(), options.end(), [](const CLI::Option *each) { return each->nonpositional(); }))
        usage += " [OPTIONS]";
    for (const CLI::Option *const option : options) {
        if (!option->get_positional()) continue;
        std::string name = option->get_name(true, false);
        if (option->get_items_expected_max() > 1) name += "...";
        usage += option->get_required() ? " " + name : " [" + name + "]";
    }
    return command.get_require_subcommand_min() > 0 ? usage + " COMMAND" : usage;
}

std::vector<std::string> linesOf(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream rest{text};
    for (std::string line; std::getline(rest, line);)
        if (!line.empty()) lines.push_back(line);
    return lines;
}

/* The text in lines that begin at a column. Words are not split. */
std::string wrapped(const std::string &text, std::size_t column) {
    std::string result;
    std::size_t at = column;
    std::istringstream words{text};
    for (std::string word; words >> word;) {
        const bool first = at == column;
        if (!first && at + 1 + word.size() > kLineWidth) {
            result += "\n" + std::string(column, ' ');
            at = column;
        } else if (!first) {
            result += " ";
            ++at;
        }
        result += word;
        at += word.size();
    }
    return result + "\n";
}

std::string section(const std::string &heading, const std::vector<HelpEntry> &entries) {
    if (entries.empty()) return "";
    std::size_t widest = 0;
    for (const HelpEntry &entry : entries) widest = std::max(widest, std::min(entry.title.size(), kWidestTitle));
    const std::size_t column = widest + 4;
    std::string text = "\n" + heading + ":\n";
    for (const HelpEntry &entry : entries) {
        const std::string title = "  " + entry.title;
        text += title;
        text += title.size() + 2 > column ? "\n" + std::string(column, ' ') : std::string(column - title.size(), ' ');
        text += wrapped(entry.text, column);
    }
    return text;
}

/* The commands under their headings. The headings are in the order of their first commands. */
std::string commandSections(const CLI::App &command) {
    std::vector<std::pair<std::string, std::vector<HelpEntry>>> groups;
    for (const CLI::App *const each : commandsBelow(command)) {
        const std::string heading = command.get_parent() == nullptr ? each->get_group() : "Commands";
        if (groups.empty() || groups.back().first != heading) groups.push_back({heading, {}});
        groups.back().second.push_back({each->get_name(), each->get_description()});
    }
    std::string text;
    for (const auto &[heading, entries] : groups) text += section(heading, entries);
    return text;
}

const CLI::App &rootOf(const CLI::App &command) {
    return command.get_parent() == nullptr ? command : rootOf(*command.get_parent());
}

class Formatter : public CLI::FormatterBase {
  public:
    std::string make_help(const CLI::App *command, std::string, CLI::AppFormatMode) const override {
        return helpText(*command);
    }
};

const CLI::App &named(const CLI::App &app, const std::vector<std::string> &words) {
    const CLI::App *command = &app;
    for (const std::string &word : words) {
        std::set<std::string> known;
        const CLI::App *next = nullptr;
        for (const CLI::App *const each : commandsBelow(*command)) {
            known.insert(each->get_name());
            if (each->get_name() == word) next = each;
        }
        if (next == nullptr)
            throw Misuse("there is no command \"" + word + "\"", didYouMean(word, known) + "see \"vosctl --help\"");
        command = next;
    }
    return *command;
}

}  // namespace

std::vector<const CLI::App *> commandsBelow(const CLI::App &command) {
    auto all = command.get_subcommands([](const CLI::App *each) { return listed(*each); });
    return {all.begin(), all.end()};
}

std::vector<std::string> valuesOf(const CLI::Option &option) {
    std::vector<std::string> values;
    const std::string type = option.get_type_name();
    const std::size_t begin = type.find(":{");
    if (begin == std::string::npos || !type.ends_with('}')) return values;
    std::istringstream all{type.substr(begin + 2, type.size() - begin - 3)};
    for (std::string value; std::getline(all, value, ',');) values.push_back(value);
    return values;
}

std::string metavariableOf(const CLI::Option &option) {
    if (option.get_positional()) return option.get_name(true, false);
    const std::string type = option.get_type_name();
    const std::string name = type.substr(0, type.find_first_of(": "));
    const auto values = valuesOf(option);
    if ((name.empty() || name == "TEXT") && !values.empty()) return CLI::detail::join(values, "|");
    return name == "UINT" || name == "INT" || name == "NUMBER" ? "N" : name;
}

void addExample(CLI::App &command, const std::string &line) {
    const std::string before = command.get_footer();
    const bool first = before.find(kExamples) == std::string::npos;
    command.footer(before + (before.empty() ? "" : "\n") + (first ? kExamples : "") + line);
}

CommandHelp helpOf(const CLI::App &command) {
    CommandHelp help;
    help.words = wordsOf(command);
    help.group = command.get_group();
    help.description = command.get_description();
    help.usage = usageOf(command);
    for (const CLI::Option *const option : command.get_options())
        (option->get_positional() ? help.arguments : help.options).push_back({titleOf(*option), textOf(*option)});
    const std::string footer = command.get_footer();
    const std::size_t examples = footer.find(kExamples);
    help.notes = linesOf(footer.substr(0, examples));
    if (examples != std::string::npos) help.examples = linesOf(footer.substr(examples + std::string(kExamples).size()));
    return help;
}

std::string helpText(const CLI::App &command) {
    const CommandHelp help = helpOf(command);
    const bool root = command.get_parent() == nullptr;
    std::string text = wrapped(help.description + (help.description.ends_with('.') ? "" : "."), 0);
    text += "\nUsage: vosctl" + (root ? "" : " " + help.words) + help.usage + "\n";
    text += section("Arguments", help.arguments) + commandSections(command) + section("Options", help.options);
    if (!root) text += section("Options of every command", helpOf(rootOf(command)).options);
    if (!help.notes.empty()) text += "\n";
    for (const std::string &line : help.notes) text += line + "\n";
    if (!help.examples.empty()) text += "\nExamples:\n";
    for (const std::string &line : help.examples) text += "  " + line + "\n";
    return text;
}

void useHelp(CLI::App &app) { app.formatter(std::make_shared<Formatter>()); }

void addHelpCommand(Command app, Context &context) {
    const auto words = std::make_shared<std::vector<std::string>>();
    Command command = app.command("help", "Print the help of a command");
    command.argument("COMMAND", *words, "The command, such as send or \"image install\"; without one, all commands");
    command.example("vosctl help send");
    command.example("vosctl help image install");
    command.onRun(context, [app, words](Output &out) {
        const std::string text = helpText(named(app.parser(), *words));
        if (!out.json()) out.raw(text);
        out.document(Json{{"help", text}});
        return kDone;
    });
}

}  // namespace vosctl
