/* SPDX-License-Identifier: MIT */
/* The checks of what message channels need. */
#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "../base/failure.h"
#include "../base/fd.h"
#include "../base/words.h"
#include "../processes/socketDirectory.h"
#include "checks.h"

namespace vosctl {

namespace {

constexpr const char *kDirectoryCheck = "socket-directory";
constexpr uint64_t kSendBuffer = 4 * 1024 * 1024; /* bytes that message sockets request */
constexpr uint64_t kReceiveBuffer = 6 * 1024 * 1024;
constexpr uint64_t kCeilingAtStart = 14 * 1024 * 1024; /* what vosInit() sets */
constexpr uint64_t kQueueLength = 4096;
constexpr int kDeviceProtocol = 30;

Finding missingDirectory() {
    if (access("/tmp", W_OK | X_OK) == 0)
        return {kDirectoryCheck, Verdict::warning, "/tmp/vos does not exist",
                "nothing while no process of vos has run; the first one makes it"};
    return {kDirectoryCheck, Verdict::error,
            std::string("/tmp/vos does not exist and /tmp cannot be written: ") + strerror(errno),
            "make /tmp a writable directory: chmod 1777 /tmp"};
}

std::string numbered(std::size_t count, const std::string &one, const std::string &many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

/* Compares a limit of the kernel with the value that is needed. */
Finding checkCeiling(const char *check, const std::string &name, uint64_t needed, uint64_t set,
                     const std::string &unit) {
    std::string path = "/proc/sys/" + name;
    std::replace(path.begin(), path.end(), '.', '/');
    std::ifstream file{path};
    uint64_t value = 0;
    const std::string remedy = "sysctl -w " + name + "=" + std::to_string(set) + " as root, as vosInit() does";
    if (!(file >> value)) return {check, Verdict::warning, path + " cannot be read", "mount /proc"};
    if (value < needed)
        return {check, Verdict::error,
                name + " is " + std::to_string(value) + " and " + unit + " " + std::to_string(needed), remedy};
    return {check, Verdict::good, name + " is " + std::to_string(value), ""};
}

}  // namespace

Finding checkSocketDirectory() {
    struct stat status {};
    const std::string path = kSocketDirectory;
    if (lstat(path.c_str(), &status) == -1) {
        if (errno == ENOENT) return missingDirectory();
        return {kDirectoryCheck, Verdict::error, path + " cannot be reached: " + strerror(errno),
                "let " + path + " be reached by this user"};
    }
    if (!S_ISDIR(status.st_mode))
        return {kDirectoryCheck, Verdict::error, path + " is not a directory", "remove it: rm " + path};
    if (status.st_uid != 0 && status.st_uid != geteuid()) {
        return {kDirectoryCheck, Verdict::error,
                path + " belongs to the foreign user " + std::to_string(status.st_uid) + ", who can take names over",
                "end what runs under it, then chown root " + path};
    }
    if (access(path.c_str(), R_OK | W_OK | X_OK) == -1)
        return {kDirectoryCheck, Verdict::error, path + " cannot be written by this user",
                "run as its owner or root, or as root: chmod 1777 " + path};
    return {kDirectoryCheck, Verdict::good, path + " can be written", ""};
}

Finding checkStaleSockets() {
    constexpr const char *kCheck = "stale-sockets";
    std::size_t count = 0;
    std::string paths;
    try {
        for (const SocketEntry &entry : readSocketDirectory()) {
            if (entry.reach != Reach::stale) continue;
            ++count;
            paths += " " + shellWord(entry.path); /* any user can create a file with any name */
        }
    } catch (const Failure &failure) {
        return {kCheck, Verdict::warning, failure.what(), "first do what is told about the socket directory"};
    }
    if (count == 0) return {kCheck, Verdict::good, "no path was left behind by a process that has ended", ""};
    return {kCheck, Verdict::warning,
            numbered(count, "path was", "paths were") + " left behind by processes that have ended:" + paths,
            "nothing when the processes start again, which take their paths over; otherwise rm --" + paths};
}

Finding checkSendCeiling() {
    return checkCeiling("send-ceiling", "net.core.wmem_max", kSendBuffer, kCeilingAtStart, "message sockets ask for");
}

Finding checkReceiveCeiling() {
    return checkCeiling("receive-ceiling", "net.core.rmem_max", kReceiveBuffer, kCeilingAtStart,
                        "message sockets ask for");
}

Finding checkQueueLength() {
    return checkCeiling("queue-length", "net.unix.max_dgram_qlen", kQueueLength, kQueueLength,
                        "the queues of message sockets are meant to hold");
}

Finding checkNetlink() {
    constexpr const char *kCheck = "netlink";
    const Fd fd{socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, kDeviceProtocol)};
    if (fd) return {kCheck, Verdict::good, "the kernel has netlink protocol 30", ""};
    return {kCheck, Verdict::error,
            std::string("the kernel has no netlink protocol 30 (") + strerror(errno) +
                "): no packets and link events, and vosMsgInit() with flag 2 fails",
            "load the device's kernel module; without one, open channels with flag 1 only"};
}

}  // namespace vosctl
