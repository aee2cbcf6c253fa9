/* SPDX-License-Identifier: MIT */
/* The sandbox's own tunables, and the command lines that write them. */
#ifndef TESTS_VOS_INIT_TUNABLES_H
#define TESTS_VOS_INIT_TUNABLES_H

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <linux/securebits.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
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

/* The content of a file below /proc/sys: the value that the kernel would have got. */
inline std::string tunable(const std::string &name) { return contentOf("/proc/sys/" + name); }

inline std::string corePattern() { return tunable("kernel/core_pattern"); }

inline const char *const kCommands = "/tmp/commands";

/* Replaces execl() in the process of the shell: records the command line, then runs it. */
inline int noteAndExecute(const char *path, const char *name, ...) {
    va_list list;
    va_start(list, name);
    const char *const option = va_arg(list, const char *);
    const char *const command = va_arg(list, const char *);
    va_end(list);
    std::ofstream(kCommands, std::ios::app) << path << ' ' << name << ' ' << option << ' ' << command << '\n';
    return execl(path, name, option, command, static_cast<char *>(nullptr));
}

/* From here on, the command lines of this process are recorded, whatever rights it has later. */
inline void noteCommands() {
    std::ofstream{kCommands};
    ASSERT_EQ(chmod(kCommands, 0666), 0);
    substitute("execl", noteAndExecute);
}

/* The recorded command lines, without the words that call the shell. */
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

/* Removes all rights of the caller and of the programs that it starts: they may read the tunables and the flash, but
 * write neither. The user stays 0, because the sandbox of an ordinary user has no other; programs of user 0 get no
 * rights back. */
inline void giveUpRights() {
    for (const char *const directory : {"/proc/sys", "/flash", "/app"})
        for (const auto &entry : std::filesystem::recursive_directory_iterator(directory))
            if (entry.is_regular_file()) {
                ASSERT_EQ(chmod(entry.path().c_str(), 0444), 0);
            }
    ASSERT_EQ(prctl(PR_SET_SECUREBITS, SECBIT_NOROOT | SECBIT_NOROOT_LOCKED), 0);
    __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
    std::array<__user_cap_data_struct, 2> none{};
    ASSERT_EQ(syscall(SYS_capset, &header, none.data()), 0);
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

/* The only reason why a scenario cannot run. */
#define NEEDS_UNLIMITED_CORES                  \
    if (coreLimit().rlim_max != RLIM_INFINITY) \
    GTEST_SKIP() << "the size of core files is limited where this test runs, and only the superuser could raise it"

#endif
