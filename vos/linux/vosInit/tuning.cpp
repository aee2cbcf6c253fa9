/* SPDX-License-Identifier: MIT */
/* The kernel settings that the device's software needs. Each is written by a shell command line. Every process writes
 * all of them when it starts, so the order in which processes start does not matter. */
#include <sys/resource.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "../base/log.h"
#include "../base/text.h"
#include "coreFile.h"
#include "vosDebug.h"
#include "vosProcess.h"
#include "vosSys.h"

namespace {

constexpr uint32_t kPlainTerminal = 0;
constexpr int32_t kSocketBufferMax = 14 * 1024 * 1024; /* bytes; the message sockets ask for about as much */
constexpr int32_t kDatagramQueue = 4096;               /* waiting datagrams before a sender blocks or fails */

constexpr std::size_t kCommandSize = 256;
using CommandLine = vos::Text<kCommandSize>;

void run(vos::Caller me, const CommandLine &command) {
    if (vosSystem(command.get(), kPlainTerminal) != VOS_OK)
        printf("\r\n%s:system(%s) failed errno %d errstr %s.", me.name, command.get(), errno, strerror(errno));
}

void echo(vos::Caller me, int32_t value, const char *file) {
    run(me, CommandLine{}.append("echo ").appendDecimal(value).append(" > ").append(file));
}

/* The limit is computed in 32 bits and wraps: a record of 4096 MiB switches core files off. */
void limitCoreFiles(vos::Caller me, uint32_t sizeMiB) {
    rlimit limit{};
    if (getrlimit(RLIMIT_CORE, &limit) == -1)
        vosPrintf("\r\n%s: getrlimit RLIMIT_CORE failed error no(%d) str(%s).", me.name, errno, strerror(errno));
    vos::trace(me, "%s:corefile rlim_cur=%ld, rlim_max=%ld now set %d M.", limit.rlim_cur, limit.rlim_max, sizeMiB);
    const rlim_t size = sizeMiB == 0 ? RLIM_INFINITY : rlim_t{sizeMiB << 20};
    limit = {size, size};
    if (setrlimit(RLIMIT_CORE, &limit) == -1)
        vosPrintf("\r\n%s: setrlimit RLIMIT_CORE failed error no(%d) str(%s).", me.name, errno, strerror(errno));
}

/* A name that is too long for the command line is cut, so that the rest of the line always fits and the quotes are
 * closed. */
void nameCoreFiles(vos::Caller me, const char *directory, const char *name) {
    constexpr std::string_view kEnd = "-%e-%p-%t\" > /proc/sys/kernel/core_pattern";
    vos::Text<kCommandSize - kEnd.size()> begin;
    begin.append("echo \"").append(directory).append("/core-").append(name);
    if (!begin.fits()) vos::error(me, "%s:name %s is too long.", vos::outside(name));
    run(me, CommandLine{}.append(begin.get()).append(kEnd));
}

}  // namespace

int32_t vosLinuxOOMInit(void) {
    const vos::Caller me;
    echo(me, 0, "/proc/sys/vm/overcommit_memory");
    return VOS_OK;
}

int32_t vosLinuxCoreDumpInit(const char *pProcName) {
    const vos::Caller me;
    if (pProcName == nullptr) vos::error(me, "%s:parameter error.");
    const vos::CoreFileSettings settings = vos::readCoreFileSettings();
    limitCoreFiles(me, settings.sizeMiB);
    echo(me, 1, "/proc/sys/kernel/core_uses_pid");
    nameCoreFiles(me, settings.directory.data(), pProcName != nullptr ? pProcName : "");
    echo(me, 1, "/proc/sys/fs/suid_dumpable");
    return VOS_OK;
}

int32_t vosLinuxNetInit(void) {
    const vos::Caller me;
    echo(me, kSocketBufferMax, "/proc/sys/net/core/wmem_max");
    echo(me, kSocketBufferMax, "/proc/sys/net/core/rmem_max");
    echo(me, kDatagramQueue, "/proc/sys/net/unix/max_dgram_qlen");
    return VOS_OK;
}
