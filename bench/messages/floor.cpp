/* SPDX-License-Identifier: MIT */
/* The same exchange by hand: only the system calls that a request needs.
 *
 *     request    a socket of its own for each request: what the library does
 *     post       the same without waiting for an answer
 *     kept       both sockets stay open: what the system calls of a private socket cost
 *     copied     as request, and the server copies the payload to the buffer of an application
 */
#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <vector>

#include "peer.h"

namespace {

using bench::must;

/* As long as the library's header, with the two words that are needed here. */
struct Head {
    uint32_t type;
    uint32_t noReturn;
    uint32_t others[5];
    uint32_t length;
};
static_assert(sizeof(Head) == 32);

struct Address {
    sockaddr_un local{};
    socklen_t length = 0;

    explicit Address(const char *path) {
        local.sun_family = AF_UNIX;
        length =
            static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 +
                                   static_cast<unsigned>(snprintf(local.sun_path, sizeof local.sun_path, "%s", path)));
    }
    [[nodiscard]] const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&local); }
};

constexpr const char *kServer = "/tmp/vos/floorserver";

void tune(int fd) {
    const int sendBuffer = 4194304;
    const int receiveBuffer = 6291456;
    must(setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sendBuffer, sizeof sendBuffer), "SO_SNDBUF");
    must(setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer), "SO_RCVBUF");
}

int openAt(const Address &own) {
    const timeval limit{3, 0};
    const int fd = must(socket(AF_UNIX, SOCK_DGRAM, 0), "socket");
    must(setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit), "SO_SNDTIMEO");
    must(setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit), "SO_RCVTIMEO");
    unlink(own.local.sun_path);
    must(bind(fd, own.get(), own.length), "bind");
    tune(fd);
    return fd;
}

class Socket final : public bench::Client {
  public:
    explicit Socket(const bench::Setting &setting)
        : server_((kServer + setting.variant).c_str()),
          size_(setting.size),
          kept_(setting.is("kept")),
          awaits_(!setting.is("post")) {
        /* As long as the paths of the library, because a longer path is more work for the kernel. It is made in
         * advance. */
        const std::string stem = "/tmp/vos/clientp" + std::to_string(getpid()) + "t" +
                                 std::to_string(static_cast<uint64_t>(pthread_self())) + "v";
        for (unsigned number = 1; number <= 127; ++number) own_.emplace_back((stem + std::to_string(number)).c_str());
        if (kept_) open();
    }
    ~Socket() override {
        if (kept_) close();
    }

    bool request(uint8_t *payload) override {
        if (!kept_) open();
        Head head{8, awaits_ ? 0U : 1U, {}, static_cast<uint32_t>(size_)};
        iovec pieces[] = {{&head, sizeof head}, {payload, size_}};
        msghdr message{};
        message.msg_iov = pieces;
        message.msg_iovlen = 2;
        must(sendmsg(fd_, &message, 0), "sendmsg");
        if (awaits_ && must(recvmsg(fd_, &message, 0), "recvmsg") != static_cast<ssize_t>(size_ + sizeof head))
            bench::die("an answer of another length");
        if (!kept_) close();
        return awaits_;
    }

  private:
    void open() {
        next_ = next_ + 1 < own_.size() ? next_ + 1 : 0;
        fd_ = openAt(own_[next_]);
        must(::connect(fd_, server_.get(), server_.length), "connect");
    }
    void close() {
        unlink(own_[next_].local.sun_path);
        ::close(fd_);
    }

    std::vector<Address> own_;
    std::size_t next_ = 0;
    Address server_;
    std::size_t size_;
    bool kept_;
    bool awaits_;
    int fd_ = -1;
};

/* The two sockets that a process of the library waits on. */
struct Sockets {
    int normal;
    int high;

    void wait() const {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(normal, &set);
        FD_SET(high, &set);
        must(select(std::max(normal, high) + 1, &set, nullptr, nullptr, nullptr), "select");
    }
};

/* The buffer from which the payload is sent back. */
uint8_t *delivered(uint8_t *payload, std::size_t size, bool copied) {
    static uint8_t applications[64600];
    return copied ? static_cast<uint8_t *>(memcpy(applications, payload, size)) : payload;
}

void serveOne(const Sockets &sockets, uint8_t *buffer, std::size_t size, bool copied) {
    sockets.wait();
    sockaddr_un sender;
    socklen_t senderLength = sizeof sender;
    const ssize_t count = must(
        recvfrom(sockets.normal, buffer, size, 0, reinterpret_cast<sockaddr *>(&sender), &senderLength), "recvfrom");
    Head head;
    memcpy(&head, buffer, sizeof head);
    if (head.noReturn == 1) return;
    const std::size_t length = static_cast<std::size_t>(count) - sizeof head;
    uint8_t *const payload = delivered(buffer + sizeof head, length, copied);
    bench::answer(payload);
    const Head back{8, 0, {}, head.length};
    iovec pieces[] = {{const_cast<Head *>(&back), sizeof back}, {payload, length}};
    msghdr message{};
    message.msg_name = &sender;
    message.msg_namelen = senderLength;
    message.msg_iov = pieces;
    message.msg_iovlen = 2;
    must(sendmsg(sockets.normal, &message, 0), "sendmsg");
}

}  // namespace

std::unique_ptr<bench::Client> bench::connect(const Setting &setting) { return std::make_unique<Socket>(setting); }

void bench::serve(const Setting &setting) {
    static uint8_t buffer[64600];
    mkdir("/tmp/vos", 0777);
    const std::string path = kServer + setting.variant;
    const Sockets sockets{openAt(Address{path.c_str()}), openAt(Address{(path + "High").c_str()})};
    ready();
    for (;;) serveOne(sockets, buffer, sizeof buffer, setting.is("copied"));
}
