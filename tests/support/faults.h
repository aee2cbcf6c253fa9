/* SPDX-License-Identifier: MIT */
/* Fault injection: the calls that libvos makes into the C library are redirected to overrides of the test program,
 * which record them and can make any of them fail. The library has no code for this: its global offset table
 * is redirected at start-up, so that no call of the test program itself is counted or failed. */
#ifndef TESTS_SUPPORT_FAULTS_H
#define TESTS_SUPPORT_FAULTS_H

#include <sys/types.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include "child.h"

namespace vostest {

/* One call to be failed. */
struct FaultPoint {
    std::string call;    // name in the C library
    int occurrence = 1;  // which of these calls: 1 is the first after arming
    int error = 0;       // errno that it reports; 0 takes the usual one (EIO, or ENOMEM for an allocation)
    long shortTo = -1;   // not -1: the call succeeds, but moves only that many bytes
    bool ends = false;   // the process is killed at the call, or behind it when it is shortened
};

namespace Faults {

/* Redirects libvos's imports. Called once by main(). */
void install();

/* Imports of libvos that have no override and are not on the reviewed list of calls that cannot fail. */
std::vector<std::string> unreviewedImports();

/* Arms one fault in this process; it strikes once, whichever thread makes the call. */
void arm(const FaultPoint &point);
/* Disarms; true when the fault has struck. */
bool disarm();

/* The calls that libvos makes while `action` runs, in order, without those that only format or print. */
std::vector<std::string> record(const std::function<void()> &action);

/* From here on the thread that enters the chosen call stores its id; an occurrence of 0 ends that. */
void watch(const std::string &call, int occurrence, std::atomic<pid_t> *caller);

/* Heap blocks that libvos has allocated and not released. */
int liveBlocks();

}  // namespace Faults

/* What one attempt with one failing call has shown. */
struct Attempt {
    FaultPoint point;
    long result = 0;                      // of the action
    std::vector<std::string> messages{};  // log lines and printed pieces
    Outcome outcome{};
    int descriptorsKept = 0;  // more descriptors open afterwards than before
    int blocksKept = 0;       // more heap blocks of libvos
    int locksKept = 0;        // more file locks
};

/* "open#2" */
std::string describe(const FaultPoint &point);

/* Runs `action` once to learn which calls it makes, then once for each of these calls with that call failing, always in
 * a fresh child that has run `prepare` first. Every fault must strike. */
std::vector<Attempt> failEachCall(const Body &prepare, const std::function<long()> &action);

/* One attempt with one chosen fault. */
Attempt failCall(const FaultPoint &point, const Body &prepare, const std::function<long()> &action);

/* Expectation that each attempt has released all descriptors, heap blocks and locks. */
void expectNothingKept(const std::vector<Attempt> &attempts);

/* Expectation on one attempt of a list, found by its description, such as "open#1". */
const Attempt &at(const std::vector<Attempt> &attempts, const std::string &description);

}  // namespace vostest

#endif
