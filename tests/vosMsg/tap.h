/* SPDX-License-Identifier: MIT */
/* A tap: it switches itself on in a process and reads the copies. */
#ifndef TESTS_VOSMSG_TAP_H
#define TESTS_VOSMSG_TAP_H

#include <algorithm>

#include "peer.h"

namespace vostest {

/* A datagram that came to a tap. */
struct Copy {
    VOS_MSG_TAP_HEAD head{};
    Bytes message;
    [[nodiscard]] std::string own() const { return {head.acOwn, head.usOwnLen}; }
    [[nodiscard]] std::string peer() const { return {head.acPeer, head.usPeerLen}; }
};

/* The control message. A path of up to 108 characters is put in as it is. */
inline Bytes tapRequest(uint32_t action, const std::string &path, uint32_t limit = 0xFFFFFFFF) {
    Bytes bytes = message({.type = VOS_MSG_TAP, .value1 = action, .value2 = limit, .length = 108});
    return bytes.text(path).fill(108 - path.size());
}

class TapPeer : public Peer {
  public:
    explicit TapPeer(const std::string &name = "tap") : Peer("/tmp/vos/" + name), path_("/tmp/vos/" + name) {
        const int wide = 1 << 24;
        setsockopt(fd(), SOL_SOCKET, SO_RCVBUF, &wide, sizeof wide);
    }
    [[nodiscard]] const std::string &path() const { return path_; }

    void ask(const std::string &process, uint32_t action, uint32_t limit = 0xFFFFFFFF) const {
        EXPECT_TRUE(send("/tmp/vos/" + process, tapRequest(action, path_, limit)));
    }

    /* The next datagram, whose header must be as every header is. */
    Copy next() {
        const Bytes bytes = receive();
        Copy copy;
        EXPECT_GE(bytes.size(), sizeof copy.head);
        memcpy(&copy.head, bytes.data(), std::min(bytes.size(), sizeof copy.head));
        EXPECT_EQ(copy.head.ulType, uint32_t{VOS_MSG_TAP_COPY});
        EXPECT_EQ(copy.head.usVersion, 1u);
        EXPECT_EQ(copy.head.usHeadLen, 304u);
        EXPECT_EQ(copy.head.ucReserved, 0u);
        EXPECT_EQ(bytes.size(), sizeof copy.head + copy.head.ulCopiedLen);
        EXPECT_LE(copy.head.ulCopiedLen, copy.head.ulWholeLen);
        EXPECT_NE(copy.head.ulProcessId, 0u);
        EXPECT_NE(copy.head.ulThreadId, 0u);
        expectZerosBehind(copy.head.acOwn, copy.head.usOwnLen);
        expectZerosBehind(copy.head.acPeer, copy.head.usPeerLen);
        if (bytes.size() > sizeof copy.head) copy.message.raw(bytes.data() + sizeof copy.head, bytes.size() - 304);
        return copy;
    }
    /* As next(), of which one field is asked for. */
    uint8_t nextWhat() { return next().head.ucWhat; }

    /* In the process that it taps: it is on when this returns. */
    void on(uint32_t limit = 0xFFFFFFFF, const std::string &process = "A") {
        ask(process, VOS_MSG_TAP_ON, limit);
        EXPECT_EQ(vostest::receive(100, 0).result, VOS_ERR_TIMEOUT);
        EXPECT_EQ(nextWhat(), VOS_MSG_TAP_STARTED);
    }
    void off(const std::string &process = "A") const {
        ask(process, VOS_MSG_TAP_OFF);
        EXPECT_EQ(vostest::receive(100, 0).result, VOS_ERR_TIMEOUT);
    }

  private:
    template <std::size_t Size>
    static void expectZerosBehind(const char (&field)[Size], std::size_t length) {
        EXPECT_LT(length, Size);
        EXPECT_TRUE(std::all_of(field + std::min(length, Size), field + Size, [](char c) { return c == '\0'; }));
    }

    std::string path_;
};

}  // namespace vostest

#endif
