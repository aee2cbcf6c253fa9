/* SPDX-License-Identifier: MIT */
#include "changes.h"

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <vector>

namespace voscut {

namespace {

enum class About { Descriptor, Path, PathAt, Open, OpenAt };

struct Watched {
    long number;
    const char *name;
    About about;
    int argument; /* of the descriptor or the path; with a directory it stands before the path */
    int second;   /* another path, as of rename(); -1: none */
};

constexpr Watched kWatched[] = {
    {SYS_write, "write", About::Descriptor, 0, -1},
    {SYS_pwrite64, "write", About::Descriptor, 0, -1},
    {SYS_writev, "write", About::Descriptor, 0, -1},
    {SYS_pwritev, "write", About::Descriptor, 0, -1},
    {SYS_pwritev2, "write", About::Descriptor, 0, -1},
    {SYS_sendfile, "write", About::Descriptor, 0, -1},
    {SYS_copy_file_range, "write", About::Descriptor, 2, -1},
    {SYS_splice, "write", About::Descriptor, 2, -1},
    {SYS_ftruncate, "truncate", About::Descriptor, 0, -1},
    {SYS_fallocate, "allocate", About::Descriptor, 0, -1},
    {SYS_truncate, "truncate", About::Path, 0, -1},
    {SYS_openat, "open", About::OpenAt, 1, -1},
    {SYS_mkdirat, "make directory", About::PathAt, 1, -1},
    {SYS_unlinkat, "remove", About::PathAt, 1, -1},
    {SYS_renameat2, "rename", About::PathAt, 1, 3},
    {SYS_linkat, "link", About::PathAt, 1, 3},
    {SYS_symlinkat, "link", About::PathAt, 2, -1},
#ifdef SYS_renameat
    {SYS_renameat, "rename", About::PathAt, 1, 3},
#endif
#ifdef SYS_open
    {SYS_open, "open", About::Open, 0, -1},
    {SYS_creat, "open", About::Path, 0, -1},
    {SYS_mkdir, "make directory", About::Path, 0, -1},
    {SYS_rmdir, "remove", About::Path, 0, -1},
    {SYS_unlink, "remove", About::Path, 0, -1},
    {SYS_rename, "rename", About::Path, 0, 1},
    {SYS_link, "link", About::Path, 0, 1},
    {SYS_symlink, "link", About::Path, 1, -1},
#endif
};

bool onFlash(const std::string &path) { return path == "/flash" || path.compare(0, 7, "/flash/") == 0; }

std::string linkOf(pid_t pid, const std::string &name) {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/" + name, error).string();
}

/* A text of the process; what cannot be read is empty, and its call fails by itself. */
std::string textAt(pid_t pid, unsigned long long address) {
    std::array<char, PATH_MAX> text{};
    std::size_t have = 0;
    while (have < text.size() && memchr(text.data(), '\0', have) == nullptr) { /* a page may be the last one */
        const std::size_t part = std::min<std::size_t>(text.size() - have, 256 - (address + have) % 256);
        iovec to{text.data() + have, part};
        iovec from{reinterpret_cast<void *>(address + have), part};
        if (process_vm_readv(pid, &to, 1, &from, 1, 0) != static_cast<ssize_t>(part)) return "";
        have += part;
    }
    return {text.data(), strnlen(text.data(), have)};
}

/* A link within the directories is followed, one at the end is not: rename and remove work on the link itself. */
std::string absolute(pid_t pid, int directory, const std::string &path) {
    if (path.empty()) return "";
    std::filesystem::path whole = path;
    if (path[0] != '/')
        whole = linkOf(pid, directory == AT_FDCWD ? "cwd" : "fd/" + std::to_string(directory)) + "/" + path;
    std::error_code error;
    const auto parent = std::filesystem::weakly_canonical(whole.parent_path(), error);
    return ((error ? whole.parent_path() : parent) / whole.filename()).lexically_normal().string();
}

/* Without O_TRUNC an existing file is left as it is. */
bool opensToChange(const std::string &path, unsigned long long flags) {
    std::error_code error;
    if ((flags & O_TRUNC) != 0 && (flags & O_ACCMODE) != O_RDONLY) return true;
    return (flags & O_CREAT) != 0 && !std::filesystem::exists(path, error);
}

std::string changeOf(pid_t pid, const seccomp_data &call) {
    for (const Watched &each : kWatched) {
        if (each.number != call.nr) continue;
        if (each.about == About::Descriptor) {
            const std::string path = linkOf(pid, "fd/" + std::to_string(static_cast<int>(call.args[each.argument])));
            return onFlash(path) ? std::string(each.name) + " " + path : "";
        }
        const bool at = each.about == About::PathAt || each.about == About::OpenAt;
        for (const int argument : {each.argument, each.second}) {
            if (argument < 0) continue;
            const int directory = at ? static_cast<int>(call.args[argument - 1]) : AT_FDCWD;
            const std::string path = absolute(pid, directory, textAt(pid, call.args[argument]));
            const bool opens = each.about == About::Open || each.about == About::OpenAt;
            if (onFlash(path) && (!opens || opensToChange(path, call.args[argument + 1])))
                return std::string(each.name) + " " + path;
        }
        return "";
    }
    return "";
}

constexpr uint32_t architecture() {
#if defined(__x86_64__)
    return AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
    return AUDIT_ARCH_AARCH64;
#endif
}

sock_filter statement(unsigned code, unsigned value) { return {static_cast<uint16_t>(code), 0, 0, value}; }

}  // namespace

int watchChanges() {
    std::vector<sock_filter> program;
    const auto add = [&](unsigned code, unsigned value) { program.push_back(statement(code, value)); };
    add(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch));
    program.push_back({BPF_JMP | BPF_JEQ | BPF_K, 1, 0, architecture()});
    add(BPF_RET | BPF_K, SECCOMP_RET_ALLOW); /* programs of another architecture are not seen */
    add(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr));
    for (const Watched &each : kWatched) {
        program.push_back({BPF_JMP | BPF_JEQ | BPF_K, 0, 1, static_cast<uint32_t>(each.number)});
        add(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF);
    }
    add(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
    sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return -1;
    return static_cast<int>(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &filter));
}

Reports::Reports(int fd) : fd_(fd) {}

bool Reports::next(std::string &change) {
    /* The kernel may know a longer record than the headers do. */
    seccomp_notif_sizes sizes{};
    if (syscall(SYS_seccomp, SECCOMP_GET_NOTIF_SIZES, 0, &sizes) != 0) return false;
    std::vector<char> record(std::max<std::size_t>(sizes.seccomp_notif, sizeof(seccomp_notif)));
    change.clear();
    if (ioctl(fd_, SECCOMP_IOCTL_NOTIF_RECV, record.data()) != 0) {
        id_ = 0;
        return errno == ENOENT || errno == EINTR; /* the thread has been killed meanwhile */
    }
    seccomp_notif report{};
    memcpy(&report, record.data(), sizeof report);
    id_ = report.id;
    change = changeOf(static_cast<pid_t>(report.pid), report.data);
    return true;
}

void Reports::release() {
    if (id_ == 0) return;
    seccomp_notif_sizes sizes{};
    syscall(SYS_seccomp, SECCOMP_GET_NOTIF_SIZES, 0, &sizes);
    std::vector<char> record(std::max<std::size_t>(sizes.seccomp_notif_resp, sizeof(seccomp_notif_resp)));
    seccomp_notif_resp answer{};
    answer.id = id_;
    answer.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
    memcpy(record.data(), &answer, sizeof answer);
    ioctl(fd_, SECCOMP_IOCTL_NOTIF_SEND, record.data());
}

}  // namespace voscut
