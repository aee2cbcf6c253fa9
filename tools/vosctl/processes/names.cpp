/* SPDX-License-Identifier: MIT */
#include "names.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>

#include "../base/failure.h"
#include "../base/fd.h"
#include "../base/words.h"

namespace vosctl {

namespace {

Reach reachOfErrno(int error) {
    switch (error) {
        case ECONNREFUSED:
            return Reach::stale;
        case ENOENT:
        case ENOTDIR:
            return Reach::missing;
        case EPERM:
            return Reach::connected;
        case EACCES:
            return Reach::forbidden;
        case EPROTOTYPE:
            return Reach::notASocket;
        default:
            return Reach::failed;
    }
}

/* The files of the socket directory that are reachable names. */
std::set<std::string> reachableFiles() {
    std::set<std::string> names;
    std::error_code failed;
    for (std::filesystem::directory_iterator each{kSocketDirectory, failed}, end; !failed && each != end;
         each.increment(failed))
        if (reachOf(each->path().string()) == Reach::reachable) names.insert(each->path().filename().string());
    return names;
}

Failure failureOf(Reach reach, const std::string &whole, const std::string &wholePath) {
    const std::string name = shortened(whole);
    const std::string path = shortened(wholePath);
    switch (reach) {
        case Reach::stale:
            return {"nobody receives under " + name + ": " + path + " was left behind by a process that has ended",
                    "start the process again, which takes the path over"};
        case Reach::missing:
            return {"no process is reachable as " + name + ": there is no " + path,
                    didYouMean(whole, reachableFiles()) + "list the names that are reachable with \"vosctl ps\""};
        case Reach::tooLong:
            return {"the name " + name + " is too long: its path has " + std::to_string(wholePath.size()) +
                        " characters and an address has room for 107",
                    "use the name that the process was started with"};
        case Reach::forbidden:
            return {"no permission to send to " + path, "run vosctl as the user of the process, or as root"};
        case Reach::connected:
            return {path + " accepts messages only from the peer to which it is connected",
                    "list the names that are reachable with \"vosctl ps\""};
        case Reach::notASocket:
            return {path + " is not a message socket", "list the names that are reachable with \"vosctl ps\""};
        default:
            return {path + " cannot be used", "run \"vosctl doctor\""};
    }
}

}  // namespace

std::string socketPath(const std::string &name, Pair which) {
    const std::string base = name.substr(name.rfind('/') + 1);
    return std::string(kSocketDirectory) + "/" + base + (which == Pair::high ? kHighEnd : "");
}

Reach reachOf(const std::string &path) {
    sockaddr_un address{};
    if (path.size() >= sizeof address.sun_path) return Reach::tooLong;
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0 && !S_ISSOCK(status.st_mode)) return Reach::notASocket;
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const Fd probe{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    if (!probe) return Reach::failed;
    if (connect(probe.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == -1)
        return reachOfErrno(errno);
    /* A connected sender may write unless the receiver's queue is full. */
    pollfd writable{probe.get(), POLLOUT, 0};
    return poll(&writable, 1, 0) == 1 && (writable.revents & POLLOUT) != 0 ? Reach::reachable : Reach::full;
}

void requireReachable(const std::string &name, Pair which) {
    const std::string path = socketPath(name, which);
    const Reach reach = reachOf(path);
    if (reach != Reach::reachable && reach != Reach::full) throw failureOf(reach, name, path);
}

void explainSilence(const std::string &name, Pair which, const std::string &otherwise, const std::string &nextStep) {
    requireReachable(name, which);
    if (reachOf(socketPath(name, which)) == Reach::full)
        throw Failure("the queue of " + name + " is full: it does not take its messages",
                      "see with \"vosctl ps\" which process it is and what keeps it busy");
    throw Failure(otherwise, nextStep);
}

}  // namespace vosctl
