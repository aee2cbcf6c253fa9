/* SPDX-License-Identifier: MIT */
/* One run of the command, with the library before its libvos. */
#ifndef TESTKIT_FAULTS_RUN_H
#define TESTKIT_FAULTS_RUN_H

#include <chrono>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "area.h"

namespace vosfaults {

/* Ends vos-faults with its message and the status kCannot. */
struct Cannot : std::runtime_error {
    using runtime_error::runtime_error;
};

struct Settings {
    std::vector<std::string> command;
    std::string rules;
    std::string program;
    std::string seed;
    bool recording = false;
    bool alone = false;                 /* away from the terminal, in a process group of its own, and quiet */
    std::chrono::milliseconds limit{0}; /* 0: none */
};

struct Made {
    std::string program;
    std::string call;
    uint32_t occurrence;
};

struct Strike {
    std::string program;
    std::string call;
    uint32_t occurrence;
    uint64_t rule;
    pid_t pid;
};

/* The most that a program of this name has left, over all of its processes. */
struct Left {
    int descriptors = 0;
    int blocks = 0;
};

struct Result {
    bool hung = false;
    bool interrupted = false; /* by a signal to vos-faults */
    int status = 0;           /* as a shell shows it */
    int signal = 0;           /* what has ended the command, or 0 */
    std::string output;       /* of a run alone */
    std::vector<Made> made;
    std::vector<Strike> strikes;
    std::map<std::string, Left> left;
    bool complete = true; /* there was room for all records */
};

Result run(const Settings &settings);

}  // namespace vosfaults

#endif
