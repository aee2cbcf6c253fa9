/* SPDX-License-Identifier: MIT */
/* vosctl: sees and changes from the command line what a running process or a flash holds. */
#include <fcntl.h>
#include <unistd.h>
#include <vosProcess.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/interrupts.h"
#include "commands/commands.h"
#include "flash/deviceTree.h"

namespace {

using namespace vosctl;  // NOLINT(google-build-using-namespace): this is vosctl

void addGlobals(CLI::App &app, Context &context) {
    app.add_flag("--json", context.json, "Print results as one JSON document");
    app.add_option("--root", context.root, "Work on the device tree below this directory instead of /")
        ->check(CLI::Validator(
            [](const std::string &text) { return text.empty() ? std::string("the directory is empty") : std::string(); },
            "")) /* an empty variable must not mean this machine */
        ->type_name("DIR");
    app.add_option("--color", context.color, "Colours: auto (on a terminal), always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->type_name("WHEN");
    app.add_flag("-v,--verbose", context.verbose, "Print the library's own log lines on standard error");
    app.set_version_flag("--version", "vosctl " VOSCTL_VERSION);
    app.require_subcommand(1);
    app.fallthrough(); /* these options are understood behind a command too */
}

/* The groups of commands, in the order of the help. */
constexpr void (*kGroups[])(CLI::App &, Context &) = {
    addPsCommands,         //
    addSendCommands,       //
    addListenCommand,      //
    addQueryCommands,      //
    addDebugCommands,      //
    addLogCommand,         //
    addItemCommands,       //
    addPartitionCommands,  //
    addConfigCommands,     //
    addSyslogCommands,     //
    addImageCommands,      //
    addPackageCommands,    //
    addCrcCommand,         //
    addDoctorCommand,      //
    addCompleteCommand,    //
};

bool wantsColor(const Context &context) {
    if (context.color != "auto") return context.color == "always";
    const char *const terminal = getenv("TERM");
    const char *const refused = getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) == 1 && (refused == nullptr || *refused == '\0') && terminal != nullptr &&
           strcmp(terminal, "dumb") != 0;
}

/* Results get a descriptor of their own; what the library prints to descriptor 1 goes to standard error or nowhere. */
int takeStandardOutput(bool verbose) {
    const int results = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (results == -1) throw Failure(std::string("there is no standard output: ") + strerror(errno), "open it");
    const int target = verbose ? STDERR_FILENO : open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (target == -1 || dup2(target, STDOUT_FILENO) == -1)
        throw Failure(std::string("/dev/null cannot be opened: ") + strerror(errno), "make the device node");
    if (!verbose) close(target);
    return results;
}

int explain(const Failure &failure, const Context &context, Output *out) {
    const std::string what = printable(failure.what());
    const std::string next = printable(failure.nextStep());
    fprintf(stderr, "%svosctl: %s; %s\n", context.verbose ? "\n" : "", what.c_str(), next.c_str());
    if (out == nullptr || !context.json) return kFailed;
    try {
        out->documentLine(Json{{"error", {{"what", what}, {"nextStep", next}}}});
        out->flush();
    } catch (const Failure &) { /* there is nobody left to tell */
    }
    return kFailed;
}

int run(const Context &context) {
    std::unique_ptr<Output> out;
    try {
        const bool color = wantsColor(context);
        out = std::make_unique<Output>(takeStandardOutput(context.verbose), Output::Settings{context.json, color});
        useDeviceTree(context.root);
        leaveNoRequesterBehind();
        memcpy(szVosProcName, "vosctl", sizeof "vosctl"); /* heads the library's log lines */
        const int status = context.action(*out);
        out->flush();
        return status;
    } catch (const Failure &failure) {
        return explain(failure, context, out.get());
    }
}

/* Help and version are what was asked for; everything else is a mistake on the command line. */
int explainUsage(const CLI::App &app, const CLI::ParseError &error) {
    if (error.get_exit_code() == 0) {
        const int status = app.exit(error);
        return fflush(stdout) == 0 ? status : kFailed;
    }
    const CLI::App *named = &app;
    std::string command = "vosctl";
    while (!named->get_subcommands().empty()) {
        named = named->get_subcommands().front();
        command += " " + named->get_name();
    }
    const std::vector<std::string> unknown = app.remaining(true);
    const bool noCommand = error.get_name() == "RequiredError" && named->get_require_subcommand_min() > 0;
    const std::string what =
        noCommand && !unknown.empty() ? "there is no command \"" + unknown.front() + "\"" : std::string(error.what());
    fprintf(stderr, "vosctl: %s; see \"%s --help\"\n", printable(what).c_str(), command.c_str());
    return kUsage;
}

}  // namespace

int main(int argc, char **argv) {
    try {
        CLI::App app{"Sees and changes what a running process or a flash of the device holds.", "vosctl"};
        Context context;
        addGlobals(app, context);
        for (const auto add : kGroups) add(app, context);
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError &error) {
            return explainUsage(app, error);
        }
        return run(context);
    } catch (const std::exception &error) {
        fprintf(stderr, "vosctl: unexpected: %s; please report this\n", error.what());
        return kFailed;
    }
}
