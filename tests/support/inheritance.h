/* SPDX-License-Identifier: MIT */
/* Finds out what a program inherits from the process that starts it, for every way of starting one with libvos. */
#ifndef TESTS_SUPPORT_INHERITANCE_H
#define TESTS_SUPPORT_INHERITANCE_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "child.h"
#include "vos.h"

namespace vostest {

struct Inheritance {
    std::set<int> descriptors;
    std::set<int> blocked;            // signals
    std::set<int> ignored;            // signals
    std::set<std::string> variables;  // "NAME=value"
    std::string directory;
};

/* A way of starting a program. The result is that of the library's call. */
struct WayToStart {
    const char *name;
    bool throughShell; /* the keyboard's signals and SIGCHLD are then at their default, even if the caller ignores them
                        */
    std::function<int32_t(const char *program)> start;
};

/* The child that could not execute its program must not go on with the test. */
inline int32_t startWithNewFd(const char *program) {
    const int32_t pid = vosProcessCreateWithNewFd(program, 50, 0, STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO);
    if (pid == 0) _exit(1);
    return pid;
}

inline const std::vector<WayToStart> &waysToStart() {
    static const std::vector<WayToStart> all = {
        {"vosProcessCreate", false, [](const char *program) { return vosProcessCreate(program, 50, 0, nullptr); }},
        {"vosProcessCreate with arguments", false,
         [](const char *path) { return vosProcessCreate(path, 50, 0, "-a"); }},
        {"vosProcessCreateWithNewFd", false, startWithNewFd},
        {"vosSystem", true, [](const char *program) { return vosSystem(program, 0); }},
        {"vosSystem2", true, [](const char *program) { return vosSystem2(program, 0, nullptr); }},
        {"vosSystemNoWait", true, [](const char *program) { return vosSystemNoWait(program); }},
    };
    return all;
}

/* Runs `prepare` in a child, which then starts a program in that way. Returns what the program has inherited. That the
 * program could not be made real-time is no failure here. */
inline Inheritance inheritedBy(const WayToStart &way, const Body &prepare) {
    const Outcome outcome = run([&] {
        prepare();
        way.start((testPrograms() + "/inherited").c_str());
        _exit(0); /* with the handlers and hooks of `prepare`, exit() might do more */
    });
    Inheritance found;
    bool complete = false;
    std::istringstream lines(outcome.output);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string word;
        std::string kind;
        words >> word >> kind >> std::ws;
        std::string value;
        std::getline(words, value);
        if (word != "inherited") continue;
        if (kind == "descriptor") found.descriptors.insert(std::stoi(value));
        if (kind == "blocked") found.blocked.insert(std::stoi(value));
        if (kind == "ignored") found.ignored.insert(std::stoi(value));
        if (kind == "variable") found.variables.insert(value);
        if (kind == "directory") found.directory = value;
        if (kind == "all") complete = true;
    }
    EXPECT_TRUE(complete) << way.name << ": the program has not printed everything: " << outcome.output;
    return found;
}

}  // namespace vostest

#endif
