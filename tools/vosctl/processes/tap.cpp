/* SPDX-License-Identifier: MIT */
#include "tap.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vosMsg.h>
#include <vosMsgTap.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "../base/failure.h"
#include "socketDirectory.h"

namespace vosctl {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kBatch = 32;                                              /* datagrams for one system call */
constexpr std::size_t kLargest = sizeof(VOS_MSG_TAP_HEAD) + VOS_MSG_BUFFER_LEN; /* what is longer is cut */

Failure failure(const std::string &what) {
    return {what + ": " + strerror(errno), "look for the cause with \"vosctl doctor\""};
}

/* The files that may be sockets of processes to watch, with their numbers. Requests come and go by the thousand, so
 * nothing but the directory is read. */
std::map<std::string, uint64_t> candidates() {
    std::map<std::string, uint64_t> files;
    std::error_code failed;
    for (fs::directory_iterator each{kSocketDirectory, failed}, end; !failed && each != end; each.increment(failed)) {
        std::string file = each->path().filename().string();
        struct stat status {};
        if (isRequester(file) || file.starts_with(Tap::kFileBegin)) continue;
        if (lstat(each->path().c_str(), &status) == 0 && S_ISSOCK(status.st_mode))
            files.emplace(std::move(file), status.st_ino);
    }
    return files;
}

VOS_MSG_TAP_SWITCH requestOf(uint32_t action, uint32_t payloadBytes, const std::string &tap) {
    VOS_MSG_TAP_SWITCH request{};
    request.stHead.ulType = VOS_MSG_TAP;
    request.stHead.ulNoReturn = 1;
    request.stHead.ulValue1 = action;
    request.stHead.ulValue2 = payloadBytes;
    request.stHead.ulBufLen = sizeof request.acPath;
    memcpy(request.acPath, tap.data(), std::min(tap.size(), sizeof request.acPath - 1));
    return request;
}

bool sendTo(int fd, const std::string &path, const VOS_MSG_TAP_SWITCH &request) {
    sockaddr_un address{};
    if (path.size() >= sizeof address.sun_path) return false;
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return sendto(fd, &request, sizeof request, MSG_DONTWAIT, reinterpret_cast<const sockaddr *>(&address),
                  sizeof address) == static_cast<ssize_t>(sizeof request);
}

/* Runs in the guardian. A process where the tap is not on takes no notice. One whose queue is full switches it off when
 * it sends its next message: the socket is gone. */
bool switchOffEverywhere(const std::string &tap) {
    const Fd fd{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    if (!fd) return false;
    for (const auto &[file, inode] : candidates())
        sendTo(fd.get(), std::string(kSocketDirectory) + "/" + file, requestOf(VOS_MSG_TAP_OFF, 0, tap));
    return unlink(tap.c_str()) == 0;
}

/* As the library makes it. */
void makeDirectory() {
    if (mkdir(kSocketDirectory, 0777) == 0) chmod(kSocketDirectory, 0777);
}

}  // namespace

Tap::Tap(std::vector<std::string> names, uint32_t payloadBytes)
    : names_(std::move(names)), payloadBytes_(payloadBytes), buffer_(kBatch * kLargest) {
    for (std::string &name : names_) name = name.substr(name.rfind('/') + 1);
    makeDirectory();
    path_.append(kSocketDirectory).append("/").append(kFileBegin).append(std::to_string(getpid()));
    bindSocket();
    try {
        guardian_.emplace([path = path_] { return switchOffEverywhere(path); });
    } catch (const Failure &) {
        unlink(path_.c_str());
        throw;
    }
}

Tap::~Tap() { switchOff(); }

void Tap::bindSocket() {
    socket_ = Fd{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    if (!socket_) throw failure("a socket cannot be created");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
    unlink(path_.c_str());           /* of an earlier process with this process id */
    const mode_t mask = umask(0177); /* nobody else may send copies of his own */
    const int bound = bind(socket_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
    umask(mask);
    if (bound == -1) throw failure(path_ + " cannot be made");
    vosMsgSocketOptmize(socket_.get(), 0);
}

bool Tap::wants(const std::string &file, const std::string &name) const {
    return names_.empty() || std::any_of(names_.begin(), names_.end(),
                                         [&](const std::string &each) { return each == file || each == name; });
}

/* One socket of each process: the main channel's, or those of its threads when it has none. */
void Tap::look() {
    auto files = candidates();
    if (files == seen_ && !unasked_) return;
    unasked_ = false;
    seen_ = std::move(files);
    std::erase_if(asked_, [&](const auto &each) {
        const auto found = seen_.find(each.first);
        return found == seen_.end() || found->second != each.second;
    });
    const std::vector<SocketEntry> entries = readSocketDirectory();
    using Kind = SocketEntry::Kind;
    for (const SocketEntry &entry : entries) {
        const auto number = seen_.find(entry.file);
        if (number == seen_.end() || asked_.contains(entry.file) || !alive(entry) || !wants(entry.file, entry.name))
            continue;
        const bool hasMain = std::any_of(entries.begin(), entries.end(), [&](const SocketEntry &other) {
            return other.kind == Kind::normal && other.name == entry.name;
        });
        if (entry.kind == Kind::normal || (entry.kind != Kind::requester && !hasMain)) ask(entry.path, number->second);
    }
}

void Tap::ask(const std::string &path, uint64_t inode) {
    if (sendTo(socket_.get(), path, requestOf(VOS_MSG_TAP_ON, payloadBytes_, path_)))
        asked_[path.substr(path.rfind('/') + 1)] = inode;
    else if (errno == EAGAIN || errno == ENOBUFS)
        unasked_ = true;
}

bool Tap::take(std::vector<std::string> &datagrams, std::size_t most) {
    std::array<mmsghdr, kBatch> messages{};
    std::array<iovec, kBatch> parts{};
    for (std::size_t index = 0; index < kBatch; ++index) {
        parts[index] = {buffer_.data() + index * kLargest, kLargest};
        messages[index].msg_hdr.msg_iov = &parts[index];
        messages[index].msg_hdr.msg_iovlen = 1;
    }
    for (std::size_t taken = 0; taken < most;) {
        const int count = recvmmsg(socket_.get(), messages.data(), kBatch, MSG_DONTWAIT, nullptr);
        if (count <= 0) return false;
        for (std::size_t index = 0; index < static_cast<std::size_t>(count); ++index)
            datagrams.emplace_back(static_cast<const char *>(parts[index].iov_base), messages[index].msg_len);
        taken += static_cast<std::size_t>(count);
    }
    return true;
}

bool Tap::switchOff() { return guardian_->finish(); }

}  // namespace vosctl
