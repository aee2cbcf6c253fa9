/* SPDX-License-Identifier: MIT */
/* The command vos-faults. */
#include <getopt.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>

#include "calls.h"
#include "each.h"
#include "rules.h"
#include "run.h"

namespace vosfaults {

namespace {

constexpr const char *kHelp =
    R"(Makes calls of a command into libvos, and calls of libvos into the C library, fail or wait.

    vos-faults [OPTION]... RULE... -- COMMAND [ARGUMENT]...
    vos-faults --each [OPTION]... -- COMMAND [ARGUMENT]...

    vosMsgSend#3=-1:ETIMEDOUT   the third call returns -1, with this errno
    vosSysConfigDataSet=-1      every call does; a code such as VOS_ERR_MEMORY can be named, too
    write@/flash=ENOSPC         every write() of libvos to a file below /flash fails in its usual way
    vosMsgSend@server%20        every fifth request or so to the process "server" fails
    vosMsgRecv+50ms             every call waits before it is made
    open#2..                    the second and all later ones
    write#4=short:3             only three bytes are moved
    write@/flash#7=kill         the process is killed at the call

    --each             run the command once per call that could fail, and tell how each run ended
    --calls PATTERN    with --each: only calls of this name; "*" and "?" fit any characters; may be repeated
    --most N           with --each: only the first N calls of each name in each program
    --time-limit TIME  with --each: a run that takes longer has hung (default 30s)
    --program NAME     only in programs of this name
    --seed N           another choice of the calls of a share (default 1)
    --verbose          tell each call that was struck; with --each: also what the command prints
    --list             print the names of all calls
    --help
)";

struct Options {
    Each each;
    bool tryEach = false;
    bool chosenEach = false; /* an option of --each was given */
};

uint64_t numberOf(const char *text, const char *option, uint64_t most) {
    char *end = nullptr;
    errno = 0;
    const unsigned long long value = strtoull(text, &end, 10);
    if (*text < '0' || *text > '9' || *end != '\0' || errno != 0 || value > most)
        throw Cannot(std::string(option) + ": \"" + text + "\" is no number from 0 to " + std::to_string(most));
    return value;
}

std::chrono::milliseconds timeOf(const std::string &text, const char *option) {
    const bool milliseconds = text.size() > 2 && text.compare(text.size() - 2, 2, "ms") == 0;
    const bool seconds = !milliseconds && text.size() > 1 && text.back() == 's';
    if (!milliseconds && !seconds) throw Cannot(std::string(option) + ": a time is, for example, 500ms or 10s");
    const uint64_t value = numberOf(text.substr(0, text.size() - (milliseconds ? 2 : 1)).c_str(), option, 100000000);
    if (value == 0) throw Cannot(std::string(option) + ": a time of 0 is no limit");
    return std::chrono::milliseconds(value * (milliseconds ? 1 : 1000));
}

void list() {
    std::set<std::string> names;
    for (std::size_t i = 0; i < kCallCount; ++i) {
        if (i == 0) puts("calls of an application into libvos:");
        if (i == kExportCount) puts("calls of libvos into the C library:");
        printf("  %s%s\n", kCalls[i].name, kCalls[i].failure == Failure::Unknown ? "  (name a result)" : "");
    }
}

void readOptions(int argc, char **argv, Options &options) {
    enum : int { kEach = 256, kCalls, kMost, kTimeLimit, kProgram, kSeed, kVerbose, kList, kHelpOption };
    constexpr option kLong[] = {{"each", no_argument, nullptr, kEach},
                                {"calls", required_argument, nullptr, kCalls},
                                {"most", required_argument, nullptr, kMost},
                                {"time-limit", required_argument, nullptr, kTimeLimit},
                                {"program", required_argument, nullptr, kProgram},
                                {"seed", required_argument, nullptr, kSeed},
                                {"verbose", no_argument, nullptr, kVerbose},
                                {"list", no_argument, nullptr, kList},
                                {"help", no_argument, nullptr, kHelpOption},
                                {nullptr, 0, nullptr, 0}};
    Settings &settings = options.each.settings;
    settings.limit = std::chrono::seconds(30);
    opterr = 0;
    for (int found = 0; (found = getopt_long(argc, argv, "+:hv", kLong, nullptr)) != -1;) switch (found) {
            case kEach:
                options.tryEach = true;
                break;
            case kCalls:
                options.each.patterns.emplace_back(optarg);
                options.chosenEach = true;
                break;
            case kMost:
                options.each.most = static_cast<uint32_t>(numberOf(optarg, "--most", UINT32_MAX));
                options.chosenEach = true;
                break;
            case kTimeLimit:
                settings.limit = timeOf(optarg, "--time-limit");
                options.chosenEach = true;
                break;
            case kProgram:
                settings.program = optarg;
                break;
            case kSeed:
                settings.seed = std::to_string(numberOf(optarg, "--seed", UINT32_MAX));
                break;
            case 'v':
            case kVerbose:
                options.each.verbose = true;
                break;
            case kList:
                list();
                exit(fflush(stdout) == 0 ? 0 : kCannot);
            case 'h':
            case kHelpOption:
                fputs(kHelp, stdout);
                exit(fflush(stdout) == 0 ? 0 : kCannot);
            case ':':
                throw Cannot(std::string(argv[optind - 1]) + " needs a value; see vos-faults --help");
            default:
                throw Cannot(std::string("there is no option \"") + argv[optind - 1] + "\"; see vos-faults --help");
        }
}

/* getopt_long() has passed over a "--" right behind the options. */
void readRulesAndCommand(int argc, char **argv, Options &options) {
    Settings &settings = options.each.settings;
    int at = optind;
    const bool behindOptions = at > 1 && strcmp(argv[at - 1], "--") == 0;
    for (; !behindOptions && at < argc && strcmp(argv[at], "--") != 0; ++at)
        settings.rules += (settings.rules.empty() ? "" : " ") + std::string(argv[at]);
    settings.command.assign(argv + std::min(argc, at + (behindOptions ? 0 : 1)), argv + argc);
    if (settings.command.empty()) throw Cannot("no command: it belongs behind \"--\"; see vos-faults --help");
    if (options.tryEach && !settings.rules.empty())
        throw Cannot("--each makes its own rules; choose calls with --calls");
    if (!options.tryEach && options.chosenEach) throw Cannot("--calls, --most and --time-limit belong to --each");
    if (!options.tryEach && settings.rules.empty()) throw Cannot("no rule; see vos-faults --help");
}

/* A rule that did not strike is a test that has tested nothing, so it is told. */
int runOnce(const Options &options) {
    Settings settings = options.each.settings;
    settings.limit = {};
    Rules rules;
    char message[320];
    if (!parseRules(settings.rules.c_str(), rules, message, sizeof message)) throw Cannot(message);
    if (rules.count == 0) throw Cannot("no rule; see vos-faults --help"); /* only blanks */
    const Result result = run(settings);
    std::vector<int> strikes(rules.count);
    for (const Strike &strike : result.strikes) {
        if (strike.rule < strikes.size()) ++strikes[strike.rule];
        if (options.each.verbose && strike.rule < strikes.size())
            fprintf(stderr, "vos-faults: %s struck %s#%u in %s (process %d)\n", rules.rule[strike.rule].text,
                    strike.call.c_str(), strike.occurrence, strike.program.c_str(), strike.pid);
    }
    for (std::size_t i = 0; i < rules.count; ++i)
        if (strikes[i] == 0) fprintf(stderr, "vos-faults: %s did not strike\n", rules.rule[i].text);
    return result.status;
}

}  // namespace

}  // namespace vosfaults

int main(int argc, char **argv) {
    using namespace vosfaults;
    try {
        Options options;
        readOptions(argc, argv, options);
        readRulesAndCommand(argc, argv, options);
        return options.tryEach ? failEach(options.each) : runOnce(options);
    } catch (const Cannot &error) {
        fprintf(stderr, "vos-faults: %s\n", error.what());
        return kCannot;
    }
}
