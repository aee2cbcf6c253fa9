/* SPDX-License-Identifier: MIT */
/* What the tool gives to every command, and the list of the commands. */
#ifndef VOSCTL_COMMANDS_H
#define VOSCTL_COMMANDS_H

#include <string>

#include "../base/failure.h"
#include "../terminal/report.h"
#include "command.h"

namespace vosctl {

constexpr int kDone = 0;
constexpr int kFailed = 1; /* the command could not do its work, or found an error */
constexpr int kUsage = 2;

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

/* For a command that fails after it has printed its results: prints the error line and returns the exit status. */
int failedAfterResults(const std::string &what, const std::string &nextStep);

/* Each adds a group of commands. */
void addHelpCommand(Command app, Context &context);
void addPsCommands(Command app, Context &context);
void addWaitCommand(Command app, Context &context);
void addWaitsCommand(Command app, Context &context);
void addSendCommands(Command app, Context &context);
void addListenCommand(Command app, Context &context);
void addQueryCommands(Command app, Context &context);
void addDoctorCommand(Command app, Context &context);
void addCompleteCommand(Command app, Context &context);
void addLogCommand(Command app, Context &context);
void addDebugCommands(Command app, Context &context);
void addItemCommands(Command app, Context &context);
void addPartitionCommands(Command app, Context &context);
void addConfigCommands(Command app, Context &context);
void addSyslogCommands(Command app, Context &context);
void addImageCommands(Command app, Context &context);
void addPackageCommands(Command app, Context &context);
void addCrcCommand(Command app, Context &context);

}  // namespace vosctl

#endif
