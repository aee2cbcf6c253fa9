/* SPDX-License-Identifier: MIT */
/* The sandbox's private tunables, and the command lines that write them. */
#ifndef TESTS_VOS_INIT_TUNABLES_H
#define TESTS_VOS_INIT_TUNABLES_H

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/substitute.h"

namespace vostest {

inline std::string contentOf(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/* What the kernel would take from a file below /proc/sys. */
inline std::string tunable(const std::string &name) { return contentOf("/proc/sys/" + name); }

inline std::string corePattern() { return tunable("kernel/core_pattern"); }

inline const char *const kCommands = "/tmp/commands";

/* Stands for execl() in the shell's process: writes the command line down, then runs it. */
inline int noteAndExecute(const char *path, const char *name, ...) {
    va_list list;
    va_start(list, name);
    const char *const option = va_arg(list, const char *);
    const char *const command = va_arg(list, const char *);
    va_end(list);
    std::ofstream(kCommands, std::ios::app) << path << ' ' << name << ' ' << option << ' ' << command << '\n';
    return execl(path, name, option, command, static_cast<char *>(nullptr));
}

/* From here on, the command lines of this process are written down, whoever it becomes. */
inline void noteCommands() {
    std::ofstream{kCommands};
    ASSERT_EQ(chmod(kCommands, 0666), 0);
    substitute("execl", noteAndExecute);
}

/* The command lines, each without the shell in front. */
inline std::vector<std::string> commands() {
    std::ifstream file(kCommands);
    std::vector<std::string> all;
    const std::string shell = "/bin/sh sh -c ";
    for (std::string line; std::getline(file, line);) {
        EXPECT_TRUE(line.starts_with(shell)) << line;
        all.push_back(line.substr(shell.size()));
    }
    return all;
}

/* Makes the caller an ordinary user, who may read the tunables and the flash and write neither. */
inline void giveUpRights() {
    for (const auto &entry : std::filesystem::recursive_directory_iterator("/proc/sys"))
        if (entry.is_regular_file()) chmod(entry.path().c_str(), 0644);
    ASSERT_EQ(setuid(65534), 0);
}

inline rlimit coreLimit() {
    rlimit limit{};
    EXPECT_EQ(getrlimit(RLIMIT_CORE, &limit), 0);
    return limit;
}

inline void expectCoreLimit(rlim_t expected) {
    EXPECT_EQ(coreLimit().rlim_cur, expected);
    EXPECT_EQ(coreLimit().rlim_max, expected);
}

}  // namespace vostest

/* Where a scenario cannot run: the only case. */
#define NEEDS_UNLIMITED_CORES                  \
    if (coreLimit().rlim_max != RLIM_INFINITY) \
    GTEST_SKIP() << "the size of core files is limited where this test runs, and only the superuser could raise it"

#endif
