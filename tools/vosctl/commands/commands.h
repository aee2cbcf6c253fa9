/* SPDX-License-Identifier: MIT */
/* What the tool gives to every command, and the list of the commands. */
#ifndef VOSCTL_COMMANDS_H
#define VOSCTL_COMMANDS_H

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <string>

#include "../base/failure.h"
#include "../terminal/report.h"

namespace vosctl {

constexpr int kDone = 0;
constexpr int kFailed = 1; /* the command could not do its work, or found an error */
constexpr int kUsage = 2;

/* Runs a command whose arguments have been read; returns the exit status. */
using Action = std::function<int(Output &)>;

/* The options that all commands have, and the command to run. */
struct Context {
    std::string jsonForm; /* empty: text */
    bool verbose = false;
    std::string color = "auto";
    std::string root;
    std::string journal; /* empty: the library's own */
    Action action;       /* of the command that was named */

    [[nodiscard]] bool json() const { return !jsonForm.empty(); }
};

/* Sets what runs a command. It runs after the whole command line, with the options of all commands, has been read. */
inline void onRun(CLI::App *command, Context &context, Action action) {
    command->callback([&context, run = std::move(action)] { context.action = run; });
}

/* A command line for the help of a command and for its manual page. Every command that runs has at least one. */
void addExample(CLI::App *command, const std::string &line);

/* Help and completion distinguish arguments by their names, and the values of options by type_name(): NAME is a
 * process, ITEM an item, LEVEL a debug level, FILE, PAYLOAD and IMAGE are files, DIR is a directory. They also use the
 * values of a check by CLI::IsMember. */
inline constexpr const char *kNameDescription = "Name of the process";
inline constexpr const char *kItemDescription = "Name, constant or number of the item";

/* Refuses an empty value. An unset shell variable gives one. */
CLI::Validator notEmpty(const std::string &what);

/* An option whose value is a number of 32 bits, decimal, or hexadecimal after 0x; "010" is 10. */
CLI::Option *addNumber(CLI::App *command, const std::string &names, uint32_t &number, const std::string &description,
                       uint32_t least = 0, uint32_t most = 0xFFFFFFFF);
/* The option --timeout MS. */
CLI::Option *addTimeout(CLI::App *command, uint32_t &milliseconds);

/* The first argument of a command about a process. */
CLI::Option *addName(CLI::App *command, std::string &name);

/* For a command that fails after it has printed its results: prints the error line and returns the exit status. */
int failedAfterResults(const std::string &what, const std::string &nextStep);

/* Replaces the parser's own help by this tool's help. To be called before any command is added. */
void useHelp(CLI::App &app);

/* Each adds a group of commands. */
void addHelpCommand(CLI::App &app, Context &context);
void addPsCommands(CLI::App &app, Context &context);
void addWaitCommand(CLI::App &app, Context &context);
void addWaitsCommand(CLI::App &app, Context &context);
void addSendCommands(CLI::App &app, Context &context);
void addListenCommand(CLI::App &app, Context &context);
void addQueryCommands(CLI::App &app, Context &context);
void addDoctorCommand(CLI::App &app, Context &context);
void addCompleteCommand(CLI::App &app, Context &context);
void addLogCommand(CLI::App &app, Context &context);
void addDebugCommands(CLI::App &app, Context &context);
void addItemCommands(CLI::App &app, Context &context);
void addPartitionCommands(CLI::App &app, Context &context);
void addConfigCommands(CLI::App &app, Context &context);
void addSyslogCommands(CLI::App &app, Context &context);
void addImageCommands(CLI::App &app, Context &context);
void addPackageCommands(CLI::App &app, Context &context);
void addCrcCommand(CLI::App &app, Context &context);

}  // namespace vosctl

#endif
