/* SPDX-License-Identifier: MIT */
#include "each.h"

#include <fnmatch.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <set>
#include <tuple>

namespace vosfaults {

namespace {

constexpr int kCrashes[] = {SIGSEGV, SIGABRT, SIGBUS, SIGILL, SIGFPE, SIGSYS, SIGTRAP};

struct Counts {
    int well = 0;
    int otherwise = 0;
    int hung = 0;
    int crashed = 0;
    int leaked = 0;
    int unreached = 0;
};

bool isChosen(const Each &each, const Made &made) {
    if (each.most != 0 && made.occurrence > each.most) return false;
    if (!each.settings.program.empty() && made.program != each.settings.program) return false;
    const auto fits = [&](const std::string &pattern) { return fnmatch(pattern.c_str(), made.call.c_str(), 0) == 0; };
    return each.patterns.empty() || std::any_of(each.patterns.begin(), each.patterns.end(), fits);
}

/* Each call once, in the order in which they were first made. */
std::vector<Made> pointsOf(const Each &each, const Result &plain) {
    std::set<std::tuple<std::string, std::string, uint32_t>> seen;
    std::vector<Made> points;
    for (const Made &made : plain.made)
        if (isChosen(each, made) && seen.emplace(made.program, made.call, made.occurrence).second)
            points.push_back(made);
    return points;
}

bool severalPrograms(const std::vector<Made> &points) {
    const auto other = [&](const Made &made) { return made.program != points.front().program; };
    return std::any_of(points.begin(), points.end(), other);
}

/* A shell passes the end of its command on as a status. */
int crashOf(const Result &result) {
    const int number = result.signal != 0 ? result.signal : result.status - 128;
    return std::find(std::begin(kCrashes), std::end(kCrashes), number) != std::end(kCrashes) ? number : 0;
}

std::string leaks(const Result &plain, const Result &failed) {
    std::string text;
    const auto add = [&](int more, const char *what) {
        if (more > 0) text += (text.empty() ? "" : ", ") + std::to_string(more) + " " + what + (more > 1 ? "s" : "");
    };
    for (const auto &[program, left] : failed.left) {
        const auto before = plain.left.find(program);
        if (before == plain.left.end()) continue;
        add(left.descriptors - before->second.descriptors, "descriptor");
        add(left.blocks - before->second.blocks, "heap block");
    }
    return text;
}

std::string verdict(const Each &each, const Result &plain, const Result &failed, Counts &counts) {
    if (failed.hung) {
        ++counts.hung;
        return "hung: killed after " + std::to_string(each.settings.limit.count()) + " ms";
    }
    if (const int crash = crashOf(failed); crash != 0) {
        ++counts.crashed;
        return std::string("crashed: signal ") + std::to_string(crash) + " (" + strsignal(crash) + ")";
    }
    if (failed.strikes.empty()) {
        ++counts.unreached;
        return "was not reached";
    }
    const std::string more = leaks(plain, failed);
    std::string text = "ended well";
    if (failed.status == plain.status) {
        ++(more.empty() ? counts.well : counts.leaked);
        return more.empty() ? text : text + ", but leaked " + more;
    }
    ++counts.otherwise;
    text = failed.signal != 0 ? std::string("ended by signal ") + std::to_string(failed.signal)
                              : "ended with status " + std::to_string(failed.status);
    return more.empty() ? text : text + ", with " + more + " left";
}

void requireUsable(const Result &plain) {
    if (plain.interrupted) throw Cannot("interrupted");
    if (plain.hung) throw Cannot("the command does not end by itself within the time limit; see --time-limit");
    if (!plain.complete)
        throw Cannot("the command makes more calls than can be recorded; choose with --program or --calls");
    if (plain.status != 0 && plain.status != 127)
        throw Cannot("the command ends with status " + std::to_string(plain.status) +
                     " without a fault, so it would show nothing; see what it prints by itself");
    if (plain.made.empty())
        throw Cannot(plain.status == 127
                         ? "the command is not there"
                         : "the command makes no call of libvos.so that could fail; a static libvos cannot be reached");
}

}  // namespace

int failEach(const Each &each) {
    Settings settings = each.settings;
    settings.alone = true;
    settings.recording = true;
    settings.program.clear();
    const Result plain = run(settings);
    requireUsable(plain);
    const std::vector<Made> points = pointsOf(each, plain);
    if (points.empty()) throw Cannot("the command makes none of the chosen calls");
    printf("without a fault: status %d, %zu calls that could fail\n", plain.status, points.size());
    fflush(stdout);
    settings.recording = false;
    Counts counts;
    const bool several = severalPrograms(points);
    for (const Made &point : points) {
        settings.rules = point.call + "#" + std::to_string(point.occurrence);
        settings.program = point.program;
        const Result failed = run(settings);
        if (failed.interrupted) throw Cannot("interrupted");
        const std::string what = settings.rules + (several ? " in " + point.program : "");
        printf("%-32s  %s\n", what.c_str(), verdict(each, plain, failed, counts).c_str());
        if (each.verbose) fputs(failed.output.c_str(), stdout);
        fflush(stdout);
        if (ferror(stdout) != 0) throw Cannot("the output cannot be written");
    }
    printf("%zu calls: %d ended well, %d with another status, %d hung, %d crashed, %d leaked, %d were not reached\n",
           points.size(), counts.well, counts.otherwise, counts.hung, counts.crashed, counts.leaked, counts.unreached);
    return counts.hung + counts.crashed + counts.leaked == 0 ? 0 : 1;
}

}  // namespace vosfaults
