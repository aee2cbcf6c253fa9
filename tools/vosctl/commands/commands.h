/* SPDX-License-Identifier: MIT */
/* The frame of the tool: what a command gets, and the commands there are. */
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
constexpr int kFailed = 1; /* the thing asked about failed */
constexpr int kUsage = 2;

/* Runs a command whose arguments have been read; returns the exit status. */
using Action = std::function<int(Output &)>;

/* What the command line says besides the command's own arguments. */
struct Context {
    std::string jsonForm; /* empty: text */
    bool verbose = false;
    std::string color = "auto";
    std::string root;
    Action action; /* of the command that was named */

    [[nodiscard]] bool json() const { return !jsonForm.empty(); }
};

/* Lets a command be run once the whole command line has been read and the globals stand. */
inline void onRun(CLI::App *command, Context &context, Action action) {
    command->callback([&context, run = std::move(action)] { context.action = run; });
}

/* A command line for the help of a command and for its manual page. Every command that runs has at least one. */
void addExample(CLI::App *command, const std::string &line);

/* Help and completion know an argument by its name, and the value of an option by its type_name(): NAME is a process,
 * ITEM an item, LEVEL a debug level, FILE, PAYLOAD and IMAGE are files, DIR is a directory. The values of a check by
 * CLI::IsMember are known too. */
inline constexpr const char *kNameDescription = "Name of the process";
inline constexpr const char *kItemDescription = "Name, constant or number of the item";

/* For a value that must not be empty, as that of a shell variable which was never set is. */
CLI::Validator notEmpty(const std::string &what);

/* An option whose value is a number of 32 bits, decimal or hexadecimal behind 0x; "010" is 10. */
CLI::Option *addNumber(CLI::App *command, const std::string &names, uint32_t &number, const std::string &description,
                       uint32_t least = 0, uint32_t most = 0xFFFFFFFF);
/* The option --timeout MS. */
CLI::Option *addTimeout(CLI::App *command, uint32_t &milliseconds);

/* The first argument of a command about a process. */
CLI::Option *addName(CLI::App *command, std::string &name);

/* For a command that has printed its results and fails all the same: the line of a failure, and the exit status. */
int failedAfterResults(const std::string &what, const std::string &nextStep);

/* Lets --help print what this tool's help says, in place of the parser's own. Before any command is added. */
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
