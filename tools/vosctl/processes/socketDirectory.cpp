/* SPDX-License-Identifier: MIT */
#include "socketDirectory.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>

#include "../base/failure.h"

namespace vosctl {

namespace {

namespace fs = std::filesystem;
using Kind = SocketEntry::Kind;

/* The sockets' files, and their numbers in the file system. */
std::vector<std::pair<std::string, uint64_t>> socketFiles() {
    std::vector<std::pair<std::string, uint64_t>> files;
    std::error_code failed;
    fs::directory_iterator each{kSocketDirectory, failed};
    if (failed == std::errc::no_such_file_or_directory) return files;
    for (const fs::directory_iterator end; !failed && each != end; each.increment(failed)) {
        struct stat status {};
        if (lstat(each->path().c_str(), &status) == 0 && S_ISSOCK(status.st_mode))
            files.emplace_back(each->path().filename().string(), status.st_ino);
    }
    if (failed)
        throw Failure(std::string(kSocketDirectory) + " cannot be read: " + failed.message(), "run \"vosctl doctor\"");
    std::sort(files.begin(), files.end());
    return files;
}

/* The kernel's socket to which a file belongs. Another socket may still be open that was bound to the same path before,
 * so the inode of the file decides. Where the diagnostics do not report inodes, the only socket with that path is used;
 * when there are several, none. */
const KernelSocket *behind(const std::string &path, uint64_t fileInode, const KernelSockets &kernel) {
    const KernelSocket *only = nullptr;
    std::size_t count = 0;
    for (const KernelSocket &socket : kernel.sockets) {
        if (socket.path != path) continue;
        if (kernel.diagnosed && socket.fileInode == static_cast<uint32_t>(fileInode)) return &socket;
        only = &socket;
        ++count;
    }
    return count == 1 ? only : nullptr;
}

Queue queueOf(const KernelSocket &receiver, const KernelSockets &kernel) {
    Queue queue;
    queue.nextBytes = receiver.nextBytes;
    for (const KernelSocket &socket : kernel.sockets)
        if (socket.peer == receiver.inode && socket.unreadBytes > 0) ++queue.atLeast;
    if (queue.nextBytes > 0) queue.atLeast = std::max(queue.atLeast, 1U);
    return queue;
}

bool sameProcess(const SocketEntry &one, const SocketEntry &other) {
    return !one.owners.empty() && !other.owners.empty() && one.owners.front().pid == other.owners.front().pid;
}

/* A thread channel has the file name of another socket of the same process, followed by a number. */
bool isThreadOf(const SocketEntry &entry, const SocketEntry &process, const std::string &base, int &number) {
    if (entry.file == process.file || !base.starts_with(process.file) || !sameProcess(entry, process)) return false;
    const std::string_view rest = std::string_view(base).substr(process.file.size());
    int parsed = 0;
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), parsed);
    if (error != std::errc{} || end != rest.data() + rest.size()) return false;
    number = parsed;
    return true;
}

void classify(SocketEntry &entry, const std::vector<SocketEntry> &all) {
    entry.name = entry.file;
    if (isRequester(entry.file)) {
        entry.kind = Kind::requester;
        return;
    }
    const std::string_view end = kHighEnd;
    const bool high = entry.file.size() > end.size() && entry.file.ends_with(end);
    std::string base = entry.file;
    if (high) base.resize(base.size() - end.size());
    const auto process = std::find_if(
        all.begin(), all.end(), [&](const SocketEntry &other) { return isThreadOf(entry, other, base, entry.thread); });
    if (process != all.end()) {
        entry.kind = high ? Kind::threadHigh : Kind::thread;
        entry.name = process->file;
    } else if (high) {
        entry.kind = Kind::high;
        entry.name = base;
    }
}

}  // namespace

/* "clientp", "t" and "v", each with digits behind it. */
bool isRequester(std::string_view file) {
    for (const std::string_view begin : {"clientp", "t", "v"}) {
        if (!file.starts_with(begin)) return false;
        file.remove_prefix(begin.size());
        const std::size_t digits = std::min(file.find_first_not_of("0123456789"), file.size());
        if (digits == 0) return false;
        file.remove_prefix(digits);
    }
    return file.empty();
}

bool alive(const SocketEntry &entry) {
    return entry.reach == Reach::reachable || entry.reach == Reach::full || entry.reach == Reach::connected;
}

std::vector<SocketEntry> readSocketDirectory() {
    const auto files = socketFiles();
    if (files.empty()) return {};
    const KernelSockets kernel = kernelSockets();
    const auto owners = socketOwners();
    std::vector<SocketEntry> entries;
    for (const auto &[file, inode] : files) {
        SocketEntry entry;
        entry.file = file;
        entry.path = std::string(kSocketDirectory) + "/" + file;
        entry.reach = reachOf(entry.path);
        const KernelSocket *const socket = alive(entry) ? behind(entry.path, inode, kernel) : nullptr;
        if (socket != nullptr) {
            if (kernel.diagnosed) entry.queue = queueOf(*socket, kernel);
            for (const auto &[owned, owner] : owners)
                if (owned == socket->inode) entry.owners.push_back(owner);
        }
        if (entry.reach != Reach::missing) entries.push_back(std::move(entry)); /* else it was removed meanwhile */
    }
    for (SocketEntry &entry : entries) classify(entry, entries);
    return entries;
}

std::optional<uint32_t> queueLimit() {
    std::ifstream file{"/proc/sys/net/unix/max_dgram_qlen"};
    uint32_t limit = 0;
    if (file >> limit) return limit;
    return {};
}

}  // namespace vosctl
