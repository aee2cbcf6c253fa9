/* SPDX-License-Identifier: MIT */
/* Starting programs as processes of their own. */
#undef NDEBUG /* <assert.h> declares __assert_fail() only without it */
#include <libgen.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "../base/log.h"
#include "../base/processId.h"
#include "../base/signalsBlocked.h"
#include "roundRobin.h"
#include "vosProcess.h"

namespace {

constexpr int32_t kLowestPriority = 1;
constexpr int32_t kHighestPriority = 99;

int32_t checkRequest(vos::Caller me, const char *path, int32_t priority) {
    if (path == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    if (priority < kLowestPriority || priority > kHighestPriority)
        return vos::failed(me, VOS_ERR_PARAM, "%s:name %s iPriority invalid.", vos::outside(path));
    return VOS_OK;
}

const char *behindLastSlash(const char *path) {
    const char *const slash = strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

std::size_t countBlanks(const char *text) {
    return static_cast<std::size_t>(std::count(text, text + strlen(text), ' '));
}

/* A program's arguments as execv() takes them: the vector, and the text that its pointers point into. Only discard()
 * frees the two blocks: a creation that fails keeps them, as it always has. */
struct Arguments {
    char **vector = nullptr;
    char *text = nullptr;

    bool obtain(std::size_t slots, std::size_t textSize) {
        vector = static_cast<char **>(malloc(slots * sizeof *vector));
        text = static_cast<char *>(malloc(textSize));
        return vector != nullptr && text != nullptr;
    }

    void write(const char *name, const char *arguments) const {
        const std::size_t nameLength = strlen(name);
        memcpy(text, name, nameLength);
        text[nameLength] = ' ';
        memcpy(text + nameLength + 1, arguments, strlen(arguments) + 1);
    }

    /* Each blank separates two arguments, so there is an empty argument between two blanks in a row. */
    void split() const {
        char **slot = vector;
        *slot++ = text;
        for (char *blank = strchr(text, ' '); blank != nullptr; blank = strchr(*(slot - 1), ' ')) {
            *blank = '\0';
            *slot++ = blank + 1;
        }
        *slot = nullptr;
    }

    void discard() const {
        free(vector);
        free(text);
    }
};

/* Splits the argument string. False when there is no memory. When the program's name has a blank, there are more
 * arguments than slots. Then the process aborts before the first argument is stored. */
bool parse(const char *path, const char *name, const char *argumentString, Arguments &arguments) {
    const std::size_t slots = countBlanks(argumentString) + 3; /* the name, one more than blanks, the null pointer */
    if (!arguments.obtain(slots, strlen(path) + strlen(argumentString) + 16)) return false;
    arguments.write(name, argumentString);
    if (slots != countBlanks(arguments.text) + 2)
        __assert_fail("iArgsNum == (iArgsTmp + 1)", "vos/linux/vosProcess", 129, "vosProcessCreate");
    arguments.split();
    return true;
}

void reportProgramNotExecuted(vos::Caller me, const char *path) {
    vos::errorErrno(me, "%s:name %s execl failed errno:%d(%s).", vos::outside(path));
}

void execute(const char *path, const char *name, char *const *vector) {
    if (vector != nullptr)
        execv(path, vector);
    else
        execl(path, name, nullptr);
}

/* Runs in the child of vfork(). The child uses the creator's memory, its stack too, and the creator's calling thread
 * waits until the program runs or the child has ended. So the child never returns into the frame that called vfork(),
 * works in a frame of its own (noinline) and does not change the caller's variables. When there is no program to run,
 * the child's log line and its exit() act on the creator's streams, exit hooks and variables. Signals are blocked again
 * for that: a child that is killed in the middle would leave the locks of the creator's streams locked for ever. */
[[noreturn, gnu::noinline]] void becomeProgram(vos::Caller me, const vos::SignalsBlocked &blocked, const char *path,
                                               const char *name, char *const *vector) {
    blocked.restoreInChild();
    execute(path, name, vector);
    const vos::SignalsBlocked blockedAgain;
    reportProgramNotExecuted(me, path);
    exit(1);
}

/* vfork(), because the creator may be large and the kernel strict about memory. */
pid_t startSuspended(vos::Caller me, const char *path, const char *name, char *const *vector) {
    /* Stores the creator's id before the fork. If an exit hook of the child were the first to ask, it would store the
     * child's id in the creator's memory. */
    vos::processId();
    const vos::SignalsBlocked blocked;
    const pid_t child = vfork(); /* NOLINT(clang-analyzer-security.insecureAPI.vfork): see becomeProgram() */
    if (child == 0) becomeProgram(me, blocked, path, name, vector); /* NOLINT(clang-analyzer-unix.Vfork): see there */
    return child;
}

/* In the child, returns 0 when there is no program to run. */
pid_t startCopy(vos::Caller me, const char *path, const std::array<int, 3> &standardFds) {
    std::array<char, PATH_MAX> copy{}; /* basename() writes; a longer path has no program */
    std::copy_n(path, std::min(strlen(path), copy.size() - 1), copy.begin());
    const char *const name = basename(copy.data());
    const vos::SignalsBlocked blocked;
    const pid_t child = fork();
    if (child != 0) return child;
    for (int fd = 0; fd < 3; ++fd) dup2(standardFds[static_cast<std::size_t>(fd)], fd);
    blocked.restoreInChild();
    execl(path, name, nullptr);
    reportProgramNotExecuted(me, path);
    return child;
}

/* Runs in the creator, after the start: sets the child's policy. Returns the child's id, or the result code when the
 * fork or the policy has failed. */
int32_t finishStart(vos::Caller me, const char *path, pid_t child, int32_t priority) {
    if (child == -1) return vos::failed(me, VOS_ERR_FORK, "%s:name %s fork failed.", vos::outside(path));
    if (!vos::setRoundRobin(child, priority))
        return vos::failedErrno(me, VOS_ERROR, "%s:name %s sched_setscheduler failed errno:%d(%s).",
                                vos::outside(path));
    return child;
}

int32_t endedWithId(vos::Caller me, const char *path, int32_t pid) {
    vos::trace(me, "%s:end name %s return %d.", vos::outside(path), pid);
    return pid;
}

}  // namespace

int32_t vosProcessCreate(const char *pPath, int32_t iPriority, uint32_t /*ulReserved*/, const char *pArgs) {
    const vos::Caller me;
    vos::trace(me, "%s:start.");
    if (const int32_t refused = checkRequest(me, pPath, iPriority); refused != VOS_OK) return refused;
    const char *const name = behindLastSlash(pPath);
    Arguments arguments;
    /* NOLINTBEGIN(clang-analyzer-unix.Malloc): the failing paths keep the blocks, see Arguments */
    if (pArgs != nullptr && !parse(pPath, name, pArgs, arguments))
        return vos::failed(me, VOS_ERR_MEMORY, "%s:name %s malloc failed.", vos::outside(pPath));
    const pid_t child = startSuspended(me, pPath, name, arguments.vector);
    const int32_t result = finishStart(me, pPath, child, iPriority);
    if (result < 0) return result;
    /* NOLINTEND(clang-analyzer-unix.Malloc) */
    arguments.discard();
    return endedWithId(me, pPath, result);
}

int32_t vosProcessCreateWithNewFd(const char *pPath, int32_t iPriority, uint32_t /*ulReserved*/, int32_t iStdinFd,
                                  int32_t iStdoutFd, int32_t iStderrFd) {
    const vos::Caller me;
    vos::trace(me, "%s:start.");
    if (const int32_t refused = checkRequest(me, pPath, iPriority); refused != VOS_OK) return refused;
    const pid_t child = startCopy(me, pPath, {iStdinFd, iStdoutFd, iStderrFd});
    if (child == 0) return endedWithId(me, pPath, 0); /* the caller's code goes on in two processes: 0 is the child */
    const int32_t result = finishStart(me, pPath, child, iPriority);
    return result < 0 ? result : endedWithId(me, pPath, result);
}
