/* SPDX-License-Identifier: MIT */
#include "kernelSockets.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/unix_diag.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string_view>

#include "../base/fd.h"

namespace vosctl {

namespace {

struct Request {
    nlmsghdr head;
    unix_diag_req body;
};

bool ask(int fd) {
    Request request{};
    request.head.nlmsg_len = sizeof request;
    request.head.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    request.head.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.body.sdiag_family = AF_UNIX;
    request.body.udiag_states = ~0U;
    request.body.udiag_show =
        UDIAG_SHOW_NAME | UDIAG_SHOW_VFS | UDIAG_SHOW_PEER | UDIAG_SHOW_RQLEN | UDIAG_SHOW_MEMINFO;
    return send(fd, &request, sizeof request, 0) == static_cast<ssize_t>(sizeof request);
}

/* Copies the first bytes into a value. Missing bytes are 0. */
template <class Value>
Value read(std::string_view bytes) {
    Value value{};
    memcpy(&value, bytes.data(), std::min(sizeof value, bytes.size()));
    return value;
}

std::size_t lengthOf(const nlmsghdr &head) { return head.nlmsg_len; }
std::size_t lengthOf(const rtattr &head) { return head.rta_len; }

/* Calls the function for each record. The records follow each other on 4-byte boundaries. */
template <class Head, class Call>
void eachRecord(std::string_view bytes, Call call) {
    while (bytes.size() >= sizeof(Head)) {
        const Head head = read<Head>(bytes);
        const std::size_t length = lengthOf(head);
        if (length < sizeof(Head) || length > bytes.size()) return;
        call(head, bytes.substr(sizeof(Head), length - sizeof(Head)));
        bytes.remove_prefix(std::min(bytes.size(), (length + 3) / 4 * 4));
    }
}

void takeAttribute(KernelSocket &socket, unsigned type, std::string_view content) {
    switch (type) {
        case UNIX_DIAG_NAME:
            socket.path = content.substr(0, content.find('\0', 1)); /* an abstract name begins with a NUL */
            break;
        case UNIX_DIAG_VFS:
            socket.fileInode = read<unix_diag_vfs>(content).udiag_vfs_ino;
            break;
        case UNIX_DIAG_PEER:
            socket.peer = read<uint32_t>(content);
            break;
        case UNIX_DIAG_RQLEN:
            socket.nextBytes = read<unix_diag_rqlen>(content).udiag_rqueue;
            break;
        case UNIX_DIAG_MEMINFO:
            socket.unreadBytes = read<std::array<uint32_t, SK_MEMINFO_VARS>>(content)[SK_MEMINFO_WMEM_ALLOC];
            break;
        default:
            break;
    }
}

KernelSocket socketOf(std::string_view body) {
    KernelSocket socket;
    socket.inode = read<unix_diag_msg>(body).udiag_ino;
    body.remove_prefix(std::min(body.size(), sizeof(unix_diag_msg)));
    eachRecord<rtattr>(
        body, [&](const rtattr &head, std::string_view content) { takeAttribute(socket, head.rta_type, content); });
    return socket;
}

enum class Progress { more, done, refused };

Progress takeDatagram(std::vector<KernelSocket> &sockets, std::string_view datagram) {
    Progress progress = Progress::more;
    eachRecord<nlmsghdr>(datagram, [&](const nlmsghdr &head, std::string_view body) {
        if (head.nlmsg_type == NLMSG_DONE) progress = Progress::done;
        if (head.nlmsg_type == NLMSG_ERROR) progress = Progress::refused;
        if (head.nlmsg_type == SOCK_DIAG_BY_FAMILY) sockets.push_back(socketOf(body));
    });
    return progress;
}

std::optional<std::vector<KernelSocket>> diagnose() {
    const Fd fd{socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG)};
    if (!fd || !ask(fd.get())) return {};
    std::vector<KernelSocket> sockets;
    std::vector<char> buffer(65536);
    for (Progress progress = Progress::more; progress != Progress::done;) {
        const ssize_t length = recv(fd.get(), buffer.data(), buffer.size(), 0);
        if (length <= 0) return {};
        progress = takeDatagram(sockets, {buffer.data(), static_cast<std::size_t>(length)});
        if (progress == Progress::refused) return {};
    }
    return sockets;
}

/* The columns are Num RefCount Protocol Flags Type St Inode Path; the path may be missing. */
std::vector<KernelSocket> readTable() {
    std::vector<KernelSocket> sockets;
    std::ifstream table{"/proc/net/unix"};
    std::string line;
    std::getline(table, line); /* the line of titles */
    while (std::getline(table, line)) {
        std::istringstream words{line};
        std::string skipped;
        KernelSocket socket;
        for (int count = 0; count < 6; ++count) words >> skipped;
        words >> socket.inode >> std::ws;
        std::getline(words, socket.path);
        sockets.push_back(std::move(socket));
    }
    return sockets;
}

}  // namespace

KernelSockets kernelSockets() {
    if (auto sockets = diagnose()) return {std::move(*sockets), true};
    return {readTable(), false};
}

}  // namespace vosctl
