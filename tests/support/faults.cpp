/* SPDX-License-Identifier: MIT */
#include "faults.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <fstream>
#include <map>

#include "imports.h"
#include "overrides.h"

namespace vostest {

namespace {

/* What a child reports to its parent, in memory that both share. */
struct Report {
    long result;
    bool struck;
    int descriptorsKept;
    int blocksKept;
    int locksKept;
    std::size_t calls;
    std::array<std::array<char, 32>, 4096> call;
};

class SharedReport {
  public:
    SharedReport()
        : report_(static_cast<Report *>(
              mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
    ~SharedReport() { munmap(report_, sizeof *report_); }
    SharedReport(const SharedReport &) = delete;
    SharedReport &operator=(const SharedReport &) = delete;
    Report *operator->() const { return report_; }

  private:
    Report *report_;
};

int openDescriptors() {
    int count = 0;
    for (int fd = 0; fd < 4096; ++fd) count += fcntl(fd, F_GETFD) != -1 ? 1 : 0;
    return count;
}

int fileLocks() {
    std::ifstream locks("/proc/locks");
    const std::string mine = " " + std::to_string(getpid()) + " ";
    int count = 0;
    for (std::string line; std::getline(locks, line);) count += line.find(mine) != std::string::npos ? 1 : 0;
    return count;
}

Outcome attempt(const FaultPoint *point, const Body &prepare, const std::function<long()> &action,
                const SharedReport &report) {
    return run([&] {
        prepare();
        const int descriptors = openDescriptors();
        const int blocks = Faults::liveBlocks();
        const int locks = fileLocks();
        if (point != nullptr) {
            Faults::arm(*point);
            report->result = action();
            report->struck = Faults::disarm();
        } else {
            const auto calls = Faults::record([&] { report->result = action(); });
            report->calls = std::min(calls.size(), report->call.size());
            for (std::size_t i = 0; i < report->calls; ++i)
                calls[i].copy(report->call[i].data(), report->call[i].size() - 1);
        }
        report->descriptorsKept = openDescriptors() - descriptors;
        report->blocksKept = Faults::liveBlocks() - blocks;
        report->locksKept = fileLocks() - locks;
    });
}

std::vector<FaultPoint> callsOf(const Body &prepare, const std::function<long()> &action) {
    const SharedReport report;
    attempt(nullptr, prepare, action, report);
    std::map<std::string, int> occurrences;
    std::vector<FaultPoint> points;
    for (std::size_t i = 0; i < report->calls; ++i) {
        const std::string call = report->call[i].data();
        points.push_back({call, ++occurrences[call]});
    }
    return points;
}

}  // namespace

void Faults::install() {
    for (const Import &import : importsOfLibvos())
        if (void *const replacement = overrideOf(import.name)) redirect(import, replacement);
}

std::vector<std::string> Faults::unreviewedImports() {
    std::vector<std::string> unreviewed;
    for (const Import &import : importsOfLibvos())
        if (overrideOf(import.name) == nullptr && !cannotFail(import.name)) unreviewed.push_back(import.name);
    return unreviewed;
}

std::string describe(const FaultPoint &point) { return point.call + "#" + std::to_string(point.occurrence); }

Attempt failCall(const FaultPoint &point, const Body &prepare, const std::function<long()> &action) {
    const SharedReport report;
    Attempt made{.point = point};
    made.outcome = attempt(&point, prepare, action, report);
    made.result = report->result;
    made.messages = made.outcome.messages();
    made.descriptorsKept = report->descriptorsKept;
    made.blocksKept = report->blocksKept;
    made.locksKept = report->locksKept;
    if (made.outcome.exitedWith(0)) {
        EXPECT_TRUE(report->struck) << describe(point) << " was never reached";
    }
    return made;
}

std::vector<Attempt> failEachCall(const Body &prepare, const std::function<long()> &action) {
    std::vector<Attempt> attempts;
    for (const FaultPoint &point : callsOf(prepare, action)) attempts.push_back(failCall(point, prepare, action));
    EXPECT_FALSE(attempts.empty()) << "the action makes no call that can fail";
    printf("%zu calls failed, each in a run of its own\n", attempts.size());  // packaging/proof adds them up
    return attempts;
}

void expectNothingKept(const std::vector<Attempt> &attempts) {
    for (const Attempt &each : attempts) {
        EXPECT_EQ(each.descriptorsKept, 0) << "descriptors after " << describe(each.point);
        EXPECT_EQ(each.blocksKept, 0) << "heap blocks after " << describe(each.point);
        EXPECT_EQ(each.locksKept, 0) << "file locks after " << describe(each.point);
    }
}

const Attempt &at(const std::vector<Attempt> &attempts, const std::string &description) {
    static const Attempt none;
    const auto found = std::find_if(attempts.begin(), attempts.end(),
                                    [&](const Attempt &each) { return describe(each.point) == description; });
    if (found != attempts.end()) return *found;
    ADD_FAILURE() << "no attempt failed " << description;
    return none;
}

}  // namespace vostest
