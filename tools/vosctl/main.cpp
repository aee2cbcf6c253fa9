/* SPDX-License-Identifier: MIT */
/* vosctl: shows and changes the state of running processes and the data on flash. */
#include <fcntl.h>
#include <unistd.h>
#include <vosFile.h>
#include <vosProcess.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <new>
#include <set>

#include "base/interrupts.h"
#include "base/standardFds.h"
#include "base/words.h"
#include "commands/commands.h"
#include "commands/help.h"
#include "commands/watching.h"
#include "flash/deviceTree.h"

namespace {

using namespace vosctl;  // NOLINT(google-build-using-namespace): this is vosctl

/* --version is allowed only without a command. With one it would silently prevent the command from running. */
void addVersion(CLI::App &app) {
    app.add_flag_callback(
        "-V,--version",
        [&app] {
            if (!app.get_subcommands().empty()) throw CLI::ValidationError("--version cannot be used with a command");
            throw CLI::CallForVersion("vosctl " VOSCTL_VERSION, 0);
        },
        "Print the version of vosctl");
}

std::string rootMistake(const std::string &directory) { return directory.empty() ? "DIR is empty" : ""; }

/* The library takes an absolute path of at most 255 characters. */
std::string journalMistake(const std::string &directory) {
    constexpr std::size_t kLongest = 255;
    if (directory.empty()) return "DIR must not be empty";
    return directory.front() == '/' && directory.size() <= kLongest
               ? ""
               : "the journal's DIR must be an absolute path of at most 255 characters";
}

void addGlobals(CLI::App &app, Context &context) {
    app.add_flag("--json{indented}", context.jsonForm, "Print results as one JSON document; short: on one line")
        ->check(CLI::IsMember({"indented", "short"}))
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    app.add_option("--root", context.root, "Work on the device tree below this directory instead of /")
        ->type_name("DIR")
        ->check(CLI::Validator(rootMistake, ""));
    app.add_option("--journal", context.journal, "Save by way of the journal in this directory")
        ->type_name("DIR")
        ->check(CLI::Validator(journalMistake, ""))
        ->excludes("--root");
    app.add_option("--color", context.color, "Colours: auto (on a terminal), always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->type_name("WHEN");
    app.add_flag("-v,--verbose", context.verbose, "Print the library's own log lines on standard error");
    addVersion(app);
    app.require_subcommand(1);
    app.fallthrough(); /* these options are also allowed after a command */
}

/* Commands in the order of the help, and the heading under which it lists them. */
struct Commands {
    const char *heading;
    const char *names[2];
    void (*add)(Command, Context &);
    bool needsAll = false; /* they tell of all other commands */
};
constexpr const char *kProcesses = "Running processes";
constexpr const char *kFlash = "What is saved on flash";
constexpr const char *kImages = "Images and packages";
constexpr const char *kMachine = "This machine and vosctl itself";
constexpr Commands kCommands[] = {
    {kProcesses, {"ps"}, addPsCommands},
    {kProcesses, {"wait"}, addWaitCommand},
    {kProcesses, {"waits"}, addWaitsCommand},
    {kProcesses, {"monitor"}, addMonitorCommand},
    {kProcesses, {"top"}, addTopCommand},
    {kProcesses, {"capture"}, addCaptureCommand},
    {kProcesses, {"send", "ping"}, addSendCommands},
    {kProcesses, {"listen"}, addListenCommand},
    {kProcesses, {"config-of", "object"}, addQueryCommands},
    {kProcesses, {"debug", "smd"}, addDebugCommands},
    {kProcesses, {"log"}, addLogCommand},
    {kFlash, {"item"}, addItemCommands},
    {kFlash, {"partition"}, addPartitionCommands},
    {kFlash, {"config"}, addConfigCommands},
    {kFlash, {"syslog"}, addSyslogCommands},
    {kImages, {"image"}, addImageCommands},
    {kImages, {"package"}, addPackageCommands},
    {kImages, {"crc"}, addCrcCommand},
    {kMachine, {"doctor"}, addDoctorCommand},
    {kMachine, {"help"}, addHelpCommand, true},
    {kMachine, {"complete"}, addCompleteCommand, true},
};

using Words = std::vector<std::string_view>;

/* Any word may be the command, so a value that equals a command's name counts too. */
bool isNamed(const Commands &commands, const Words &words) {
    return std::any_of(std::begin(commands.names), std::end(commands.names), [&words](const char *name) {
        return name != nullptr && std::find(words.begin(), words.end(), name) != words.end();
    });
}

void addCommands(CLI::App &app, Context &context, const Words &words, bool all) {
    for (const Commands &each : kCommands) {
        if (!all && !isNamed(each, words)) continue;
        each.add(Command{&app}, context);
        for (CLI::App *const command : app.get_subcommands([](CLI::App *) { return true; }))
            if (command->get_group() == "Subcommands") command->group(each.heading); /* the parser's own heading */
    }
}

bool wantsColor(const Context &context) {
    if (context.color != "auto") return context.color == "always";
    const char *const terminal = getenv("TERM");
    const char *const refused = getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) == 1 && (refused == nullptr || *refused == '\0') && terminal != nullptr &&
           strcmp(terminal, "dumb") != 0;
}

/* The library prints to descriptor 1, so results get another descriptor. What the library prints goes to standard error
 * with --verbose, and is dropped otherwise. */
int takeStandardOutput(bool verbose) {
    const int results = isStandardOutputOpen() ? fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1) : -1;
    if (results == -1) throw Failure("there is no standard output", "open it for writing");
    const int target = verbose ? STDERR_FILENO : open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (target == -1 || dup2(target, STDOUT_FILENO) == -1)
        throw Failure(std::string("/dev/null cannot be opened: ") + strerror(errno), "make the device node");
    if (!verbose) close(target);
    return results;
}

std::unique_ptr<Output> openOutput(const Context &context) {
    const Output::Settings settings{context.json(), context.jsonForm == "short", wantsColor(context),
                                    isatty(STDOUT_FILENO) == 1};
    return std::make_unique<Output>(takeStandardOutput(context.verbose), settings);
}

int explain(const Failure &failure, const Context &context, Output *out) {
    const std::string what = printable(failure.what());
    const std::string next = printable(failure.nextStep());
    fprintf(stderr, "%svosctl: %s; %s\n", context.verbose ? "\n" : "", what.c_str(), next.c_str());
    if (out == nullptr || !context.json()) return kFailed;
    try {
        out->documentLine(Json{{"error", {{"what", what}, {"nextStep", next}}}});
        out->flush();
    } catch (const std::exception &) { /* standard output cannot be written, and standard error has the message */
    }
    return kFailed;
}

/* All changes are complete or restored. The tool ends by SIGPIPE without a message, as other tools do. */
int endWithoutReader(const ClosedPipe &failure, const Context &context, bool signalWasIgnored) {
    if (signalWasIgnored) return explain(failure, context, nullptr);
    signal(SIGPIPE, SIG_DFL);
    raise(SIGPIPE);
    return kFailed;
}

int run(const Context &context, bool pipesWereIgnored) {
    std::unique_ptr<Output> out;
    try {
        out = openOutput(context);
        useDeviceTree(context.root);
        if (!context.journal.empty()) szVosJournalDir = context.journal.c_str();
        leaveNoRequesterBehind();
        memcpy(szVosProcName, "vosctl", sizeof "vosctl"); /* the name in the library's log lines */
        const int status = context.action(*out);
        out->flush();
        return status;
    } catch (const ClosedPipe &failure) {
        return endWithoutReader(failure, context, pipesWereIgnored);
    } catch (const Misuse &failure) {
        explain(failure, context, nullptr);
        return kUsage;
    } catch (const Failure &failure) {
        return explain(failure, context, out.get());
    } catch (const std::bad_alloc &) {
        return explain(
            {"there is not enough memory", "end other programs, or raise the limit of this shell: ulimit -v"}, context,
            out.get());
    } catch (const std::exception &error) {
        return explain({std::string("unexpected: ") + error.what(), "report this as a fault of vosctl"}, context,
                       out.get());
    }
}

/* Help and version. */
int printAsked(const std::string &text) {
    errno = 0;
    const bool printed = isStandardOutputOpen() && fputs(text.c_str(), stdout) >= 0 && fflush(stdout) == 0;
    if (printed) return kDone;
    fprintf(stderr, "vosctl: standard output cannot be written: %s; see where it leads to\n",
            strerror(errno != 0 ? errno : EBADF));
    return kFailed;
}

/* The command that was named last. */
const CLI::App &deepest(const CLI::App &app) {
    const auto named = app.get_subcommands();
    return named.empty() ? app : deepest(*named.front());
}

std::set<std::string> knownWords(const CLI::App &command, bool options) {
    std::set<std::string> known;
    if (!options) {
        for (const CLI::App *const each : commandsBelow(command)) known.insert(each->get_name());
        return known;
    }
    for (const CLI::App *each = &command; each != nullptr; each = each->get_parent())
        for (const CLI::Option *const option : each->get_options())
            for (const std::string &name : option->get_lnames()) known.insert("--" + name);
    return known;
}

bool isUnexpected(const CLI::ParseError &error) {
    return error.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError);
}

/* The words that the parser did not expect. After a command the parser names them only in its message. */
std::vector<std::string> unknownWords(const CLI::App &app, const CLI::ParseError &error) {
    std::vector<std::string> unknown = app.remaining(true);
    const std::string text = error.what();
    const std::size_t colon = text.find(": ");
    if (!unknown.empty() || !isUnexpected(error) || colon == std::string::npos) return unknown;
    const std::string words = text.substr(colon + 2);
    return {words.starts_with('-') ? words.substr(0, words.find(' ')) : words};
}

/* Prints help or version when they were requested. Everything else is a mistake on the command line. */
int explainUsage(const CLI::App &app, const CLI::ParseError &error) {
    /* Before a command, --help also wins over what the command lacks: "vosctl --help send". */
    const bool asksForHelp = app.get_help_ptr()->count() > 0 && !isUnexpected(error);
    if (asksForHelp || error.get_name() == "CallForHelp") return printAsked(app.help());
    if (error.get_exit_code() == 0) return printAsked(std::string(error.what()) + "\n");
    const CLI::App &named = deepest(app);
    const std::vector<std::string> unknown = unknownWords(app, error);
    const bool noCommand = error.get_name() == "RequiredError" && named.get_require_subcommand_min() > 0;
    const bool unexpected = isUnexpected(error) || (noCommand && !unknown.empty());
    const bool isOption = !unknown.empty() && unknown.front().starts_with('-');
    std::string what = error.what();
    std::string guess;
    if (unexpected && !unknown.empty() && (isOption || noCommand)) {
        what =
            std::string("there is no ") + (isOption ? "option" : "command") + " \"" + shortened(unknown.front()) + "\"";
        guess = didYouMean(unknown.front(), knownWords(named, isOption));
    } else if (unexpected && !unknown.empty()) {
        what = "\"" + shortened(unknown.front()) + "\" is one argument too many";
    } else if (noCommand) {
        what = "no command is given";
    }
    const std::string words = helpOf(named).words;
    fprintf(stderr, "vosctl: %s; %ssee \"vosctl%s%s --help\"\n", printable(what).c_str(), printable(guess).c_str(),
            words.empty() ? "" : " ", words.c_str());
    return kUsage;
}

/* Most of the time until a command runs would go into the declarations of all the others, so only those commands are
 * declared whose names are among the words. When the parser finds no command with them, it gets all, because the help
 * and the suggestions of vosctl itself need them. */
int parseAndRun(int argc, char **argv, bool pipesWereIgnored, bool all) {
    const Words words{argv + std::min(argc, 1), argv + argc};
    CLI::App app{"Sees and changes what a running process or a flash of the device holds.", "vosctl"};
    Context context;
    useHelp(app);
    addGlobals(app, context);
    addCommands(app, context, words, all);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        if (!all && app.get_subcommands().empty()) return parseAndRun(argc, argv, pipesWereIgnored, true);
        return explainUsage(app, error);
    }
    return run(context, pipesWereIgnored);
}

bool needAll(const Words &words) {
    return std::any_of(std::begin(kCommands), std::end(kCommands),
                       [&words](const Commands &each) { return each.needsAll && isNamed(each, words); });
}

}  // namespace

int main(int argc, char **argv) {
    try {
        if (!occupyStandardFds()) return kFailed;
        const bool pipesWereIgnored = signal(SIGPIPE, SIG_IGN) == SIG_IGN; /* the write fails instead */
        return parseAndRun(argc, argv, pipesWereIgnored, needAll({argv, argv + argc}));
    } catch (const std::exception &error) {
        fprintf(stderr, "vosctl: unexpected: %s; report this as a fault of vosctl\n", error.what());
        return kFailed;
    }
}
