/* SPDX-License-Identifier: MIT */
/* The checks of the stores, the terminals and the clock. */
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vosSys.h>

#include <cerrno>
#include <cstring>

#include "../base/failure.h"
#include "../base/fd.h"
#include "../flash/deviceFile.h"
#include "../flash/deviceTree.h"
#include "../flash/partition.h"
#include "checks.h"

namespace vosctl {

namespace {

Finding checkDirectory(const char *check, const std::string &path, const std::string &use) {
    struct stat status {};
    if (stat(path.c_str(), &status) == -1)
        return {check, Verdict::error, path + " cannot be reached: " + strerror(errno),
                "mount or make it: " + use + " goes there"};
    if (!S_ISDIR(status.st_mode))
        return {check, Verdict::error, path + " is not a directory", "mount or make one: " + use + " goes there"};
    if (access(path.c_str(), W_OK | X_OK) == -1)
        return {check, Verdict::error, path + " cannot be written: " + strerror(errno),
                "mount it writable, or run as a user who may write"};
    return {check, Verdict::good, path + " can be written", ""};
}

Finding checkPartition(const char *check, const Partition &partition) {
    const std::string path = *partition.path;
    const PartitionState state = stateOf(partition);
    switch (state.trouble) {
        case Trouble::none:
            return {check, Verdict::good, path + " is valid", ""};
        case Trouble::missing:
            return {check, Verdict::warning, path + " does not exist", "nothing: the next vosInit() makes a fresh one"};
        case Trouble::unreadable:
            return {check, Verdict::error, state.reason, state.remedy};
        case Trouble::content:
            break;
    }
    return {check, Verdict::error, path + " is not a valid partition: " + state.reason,
            "keep a copy of it; the next vosInit() puts a fresh one, all bytes 0xFF, in its place"};
}

}  // namespace

Finding checkFlash() { return checkDirectory("flash", devicePath("/flash"), "what is saved"); }

Finding checkApp() { return checkDirectory("app", devicePath("/app"), "the application image"); }

Finding checkSystemPartition() { return checkPartition("system-partition", partitionOf(false)); }

Finding checkFactoryPartition() { return checkPartition("factory-partition", partitionOf(true)); }

/* The items that are set at manufacture cannot be made again later. */
Finding checkFactoryCopy() {
    constexpr const char *kCheck = "factory-copy";
    const Partition &factory = partitionOf(true);
    const std::string path = devicePath("/flash/factory.copy");
    const std::string remedy = "keep one with \"vosctl partition save " + path + "\"";
    if (!stateOf(factory).valid()) return {kCheck, Verdict::good, "there is no valid factory partition to copy", ""};
    try {
        const auto copy = readDeviceFile(path, factory.bytes());
        if (!copy) return {kCheck, Verdict::warning, "there is no copy of the factory partition at " + path, remedy};
        if (stateOfBytes(factory, *copy).valid()) return {kCheck, Verdict::good, path + " is a valid copy", ""};
    } catch (const Failure &failure) {
        return {kCheck, Verdict::warning, failure.what(), remedy};
    }
    return {kCheck, Verdict::warning, path + " is no valid copy of the factory partition", remedy};
}

Finding checkTerminals() {
    constexpr const char *kCheck = "terminals";
    const Fd fd{open("/dev/ptmx", O_RDWR | O_NOCTTY | O_CLOEXEC)};
    if (fd) return {kCheck, Verdict::good, "pseudo-terminals can be had", ""};
    return {kCheck, Verdict::warning,
            std::string("no pseudo-terminal can be had (") + strerror(errno) + "), so \"vosctl log\" does not work",
            "mount -t devpts devpts /dev/pts"};
}

Finding checkUptime() {
    constexpr const char *kCheck = "uptime";
    uint64_t seconds = 0;
    uint64_t hundredths = 0;
    if (vosUpTime(&seconds, &hundredths) != VOS_OK || (seconds == 0 && hundredths == 0))
        return {kCheck, Verdict::error, "/proc/uptime tells no time, so ticks and up-time stand still",
                "mount /proc: mount -t proc proc /proc"};
    return {kCheck, Verdict::good, "the machine is up for " + std::to_string(seconds) + " s", ""};
}

}  // namespace vosctl
