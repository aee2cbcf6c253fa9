/* SPDX-License-Identifier: MIT */
#include "blockedThreads.h"

#include <sys/syscall.h>

#include <charconv>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>

namespace vosctl {

namespace {

namespace fs = std::filesystem;

struct Call {
    long number = -1; /* -1: in none */
    unsigned long first = 0;
};

/* "running", or the number of the system call and its arguments in hexadecimal. */
std::optional<Call> callOf(const fs::path &thread) {
    std::ifstream file{thread / "syscall"};
    std::string line;
    if (!std::getline(file, line)) return {};
    Call call;
    const char *const end = line.data() + line.size();
    const auto [behind, error] = std::from_chars(line.data(), end, call.number);
    constexpr std::string_view kArgument = " 0x";
    if (error != std::errc{} || !std::string_view(behind, end).starts_with(kArgument)) return Call{};
    std::from_chars(behind + kArgument.size(), end, call.first, 16);
    return call;
}

std::optional<Blocked> kindOf(long call) {
    switch (call) {
        case SYS_recvmsg:
        case SYS_recvfrom:
        case SYS_recvmmsg:
        case SYS_read:
            return Blocked::receiving;
        case SYS_sendmsg:
        case SYS_sendto:
        case SYS_sendmmsg:
        case SYS_write:
            return Blocked::sending;
        default:
            return {};
    }
}

bool polls(long call) {
    switch (call) {
#ifdef SYS_poll
        case SYS_poll:
        case SYS_select:
        case SYS_epoll_wait:
#endif
        case SYS_ppoll:
        case SYS_pselect6:
        case SYS_epoll_pwait:
            return true;
        default:
            return false;
    }
}

std::optional<uint32_t> socketBehind(int pid, unsigned long fd) {
    std::error_code failed;
    const std::string target =
        fs::read_symlink("/proc/" + std::to_string(pid) + "/fd/" + std::to_string(fd), failed).string();
    constexpr std::string_view kBegin = "socket:[";
    uint32_t inode = 0;
    if (failed || !target.starts_with(kBegin)) return {};
    std::from_chars(target.data() + kBegin.size(), target.data() + target.size(), inode);
    return inode;
}

}  // namespace

/* Threads come and go while they are looked at: one that has ended is not counted. */
Threads threadsOf(int pid) {
    Threads threads;
    threads.seen = true;
    std::error_code failed;
    const fs::path tasks = "/proc/" + std::to_string(pid) + "/task";
    for (fs::directory_iterator each{tasks, failed}, end; !failed && each != end; each.increment(failed)) {
        ++threads.count;
        const auto call = callOf(each->path());
        if (!call) {
            threads.seen = false;
            continue;
        }
        if (polls(call->number)) threads.polling = true;
        const auto kind = kindOf(call->number);
        const auto socket = kind ? socketBehind(pid, call->first) : std::nullopt;
        int thread = 0;
        const std::string name = each->path().filename().string();
        std::from_chars(name.data(), name.data() + name.size(), thread);
        if (socket) threads.bySocket[*socket] = {thread, *kind};
    }
    if (failed || threads.count == 0) threads.seen = false;
    return threads;
}

}  // namespace vosctl
