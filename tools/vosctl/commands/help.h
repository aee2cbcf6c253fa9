/* SPDX-License-Identifier: MIT */
/* What the help of a command says: for --help, for "vosctl help" and for the manual pages. */
#ifndef VOSCTL_HELP_H
#define VOSCTL_HELP_H

#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace vosctl {

/* An argument, an option or a command, and its description. */
struct HelpEntry {
    std::string title;
    std::string text;
};

struct CommandHelp {
    std::string words; /* "image install"; empty for vosctl itself */
    std::string group; /* heading under which it is listed; empty when it is not listed */
    std::string description;
    std::string usage; /* without "vosctl" and the words */
    std::vector<HelpEntry> arguments;
    std::vector<HelpEntry> options;
    std::vector<std::string> notes; /* lines */
    std::vector<std::string> examples;
};

/* Replaces the parser's own help by this tool's help. To be called before any command is added. */
void useHelp(CLI::App &app);

/* Adds a command line to the examples at the end of the help. */
void addExample(CLI::App &command, const std::string &line);

CommandHelp helpOf(const CLI::App &command);

/* The whole help as it is printed, in lines of at most 80 characters. */
std::string helpText(const CLI::App &command);

/* The values that Argument::oneOf() allows; none without it. */
std::vector<std::string> valuesOf(const CLI::Option &option);

/* The word that the help shows for an argument or for the value of an option: "FILE". */
std::string metavariableOf(const CLI::Option &option);

/* The commands of a group that the help lists. */
std::vector<const CLI::App *> commandsBelow(const CLI::App &command);

}  // namespace vosctl

#endif
