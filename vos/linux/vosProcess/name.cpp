/* SPDX-License-Identifier: MIT */
/* The process's name. Each log line begins with it, so nothing in this file writes a log line. */
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>

#include "../base/uniqueFd.h"
#include "vosProcess.h"

constinit char szVosProcName[33] = {};

namespace {

constexpr std::size_t kNameLength = sizeof szVosProcName - 1;

vos::UniqueFd openCommandLine(int pid) {
    std::array<char, sizeof "/proc/-2147483648/cmdline"> path;
    snprintf(path.data(), path.size(), "/proc/%d/cmdline", pid);
    return vos::UniqueFd{open(path.data(), O_RDONLY | O_CLOEXEC)};
}

/* The kernel gives the arguments one after the other, each with its NUL. So the text that is read ends with the first
 * argument. A failed read leaves the name as it was. */
void readFirstArgument(const vos::UniqueFd &commandLine, char *name) {
    [[maybe_unused]] const ssize_t count = read(commandLine.get(), name, kNameLength);
}

}  // namespace

char *vosProcessGetName(void) {
    if (szVosProcName[0] != '\0') return szVosProcName;
    if (const vos::UniqueFd commandLine = openCommandLine(getpid())) readFirstArgument(commandLine, szVosProcName);
    return szVosProcName;
}

int32_t vosProcessGetNameByPid(int32_t iPid, char *pName) {
    const vos::UniqueFd commandLine = openCommandLine(iPid);
    if (!commandLine) return VOS_ERROR;
    readFirstArgument(commandLine, pName);
    return VOS_OK;
}
