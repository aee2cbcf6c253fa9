/* SPDX-License-Identifier: MIT */
/* The other side of a message channel, made of plain system calls: it can send any bytes and reads what is sent back.
 */
#ifndef TESTS_VOSMSG_PEER_H
#define TESTS_VOSMSG_PEER_H

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "support/faults.h"
#include "vos.h"

namespace vostest {

/* A datagram under construction. */
class Bytes : public std::vector<uint8_t> {
  public:
    using vector::vector;
    Bytes &word(uint32_t value) { return raw(&value, sizeof value); }
    Bytes &text(std::string_view text) { return raw(text.data(), text.size()); }
    Bytes &fill(std::size_t count, uint8_t value = 0) {
        insert(end(), count, value);
        return *this;
    }
    Bytes &raw(const void *from, std::size_t length) {
        const auto *const first = static_cast<const uint8_t *>(from);
        insert(end(), first, first + length);
        return *this;
    }
    [[nodiscard]] uint32_t wordAt(std::size_t offset) const {
        uint32_t value = 0xDEADBEEF;
        if (offset + sizeof value <= size()) memcpy(&value, data() + offset, sizeof value);
        return value;
    }
    [[nodiscard]] std::string textAt(std::size_t offset, std::size_t length) const {
        return offset + length <= size() ? std::string(data() + offset, data() + offset + length) : "past the end";
    }
};

/* A header's eight words. */
struct Head {
    uint32_t type = VOS_MSG_TYPE_SELF, noReturn = 0, retCode = 0, value1 = 0, value2 = 0, value3 = 0, value4 = 0,
             length = 0;
};

inline Bytes message(const Head &head) {
    Bytes bytes;
    for (const uint32_t word :
         {head.type, head.noReturn, head.retCode, head.value1, head.value2, head.value3, head.value4, head.length})
        bytes.word(word);
    return bytes;
}

inline Bytes message(const Head &head, std::string_view payload) { return message(head).text(payload); }

/* An application message with a payload. */
inline Bytes application(std::string_view payload) {
    Head head;
    head.length = static_cast<uint32_t>(payload.size());
    return message(head, payload);
}

inline sockaddr_un addressOf(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

class Peer {
  public:
    /* Without a path the peer has no name. */
    explicit Peer(const std::string &path = {}) : fd_(socket(AF_UNIX, SOCK_DGRAM, 0)) {
        const timeval limit{20, 0};
        setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        const int wide = 1 << 20;
        setsockopt(fd_, SOL_SOCKET, SO_SNDBUF, &wide, sizeof wide);
        if (path.empty()) return;
        mkdir("/tmp/vos", 0777);
        unlink(path.c_str());
        const sockaddr_un address = addressOf(path);
        EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;
    ~Peer() { close(fd_); }

    [[nodiscard]] int fd() const { return fd_; }

    /* Whether the datagram went out; with `flags` MSG_DONTWAIT a full receiver refuses. */
    bool send(const std::string &path, const Bytes &bytes, int flags = 0) const {
        const sockaddr_un address = addressOf(path);
        return sendto(fd_, bytes.data(), bytes.size(), flags, reinterpret_cast<const sockaddr *>(&address),
                      sizeof address) == static_cast<ssize_t>(bytes.size());
    }

    /* The next datagram; its sender's path is kept in `sender`. */
    Bytes receive() {
        Bytes bytes(70000);
        sockaddr_un from{};
        socklen_t length = sizeof from;
        const ssize_t count =
            recvfrom(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr *>(&from), &length);
        EXPECT_GE(count, 0) << "nothing came";
        bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        sender = from.sun_path;
        return bytes;
    }
    [[nodiscard]] bool hasMail() const {
        char byte = 0;
        return recv(fd_, &byte, 1, MSG_DONTWAIT | MSG_PEEK) >= 0;
    }

    std::string sender;

  private:
    int fd_;
};

/* A peer that exists until the child ends. */
inline Peer *stay(const std::string &path) {
    static Peer *staying;
    return staying = new Peer{path};
}

/* Sets the name of the process, so that its first line does not read it, and removes what an earlier run has left. */
inline void freshWorld() {
    strcpy(szVosProcName, "scenario");
    [[maybe_unused]] const int result = system("rm -rf /tmp/vos");
}

/* As for every request but the first one of a process: the process id has been asked for. */
inline void knowProcessId() {
    std::array<char, 128> path;
    EXPECT_EQ(vosMsgGetLocalFile(path.data(), path.size()), VOS_OK);
}

/* Opens the channel with the log switched off, because the lines on buffer sizes depend on the machine. */
inline void openChannel(const char *name, uint32_t flags = 1) {
    int reserved = 0;
    strcpy(szVosProcName, "scenario");
    vosDebugConfig(0);
    EXPECT_EQ(vosMsgInit(name, flags, &reserved), VOS_OK);
    vosDebugConfig(VOS_DEBUG_ERROR);
}

/* Removes the lines on buffer sizes, which depend on the machine. */
inline std::vector<std::string> withoutTuning(std::vector<std::string> messages) {
    std::erase_if(messages,
                  [](const std::string &line) { return line.find("KERNEL_NET_MEM_MAX") != std::string::npos; });
    return messages;
}

inline bool exists(const std::string &path) { return access(path.c_str(), F_OK) == 0; }

/* The paths of requesters that have not been removed. */
/* Looks at the directory itself: the end of a child process can interrupt a request that another thread makes. */
inline int requesterPathsLeft() {
    std::error_code missing;
    for (const auto &entry : std::filesystem::directory_iterator("/tmp/vos", missing))
        if (entry.path().filename().string().starts_with("clientp")) return 1;
    return 0;
}

/* Receives with the buffer of a test. */
struct Received {
    int32_t result;
    std::string bytes;
    VOS_MSG_PEER peer;
};
inline Received receive(uint32_t size = 100, uint32_t timeoutMs = 20000) {
    Received received{0, std::string(size, '.'), {}};
    received.result = vosMsgRecv(0, received.bytes.data(), size, timeoutMs, &received.peer);
    return received;
}

inline std::string errnoLine(const std::string &text, int error) {
    return text + " failed errno:" + errnoText(error) + ".";
}

}  // namespace vostest

#endif
