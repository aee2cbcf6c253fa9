/* SPDX-License-Identifier: MIT */
/* The device's kernel module on its own netlink protocol, in the emulated device only. In the other tests the test
 * itself sends the kernel's messages. */
#include <linux/netlink.h>
#include <sched.h>

#include <array>

#include "../../device/module/vosdevice.h"
#include "support/substitute.h"
#include "vosMsg/peer.h"

using namespace vostest;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> seen;

int32_t linkChanged(uint32_t a, uint32_t b) {
    seen.push_back("port " + std::to_string(a) + " " + std::to_string(b));
    return 0;
}
int32_t interfaceChanged(uint32_t a, uint32_t b, uint32_t c) {
    seen.push_back("vlan " + std::to_string(a) + " " + std::to_string(b) + " " + std::to_string(c));
    return 0;
}
int32_t trapped(uint8_t *data, int32_t length, VOS_PKT_INFO info, VOS_PKT_EXT ext) {
    bool whole = info.aucData[0] == 0xA5 && ext.aucData[55] == 0xA5;
    for (int32_t i = 0; i < length; ++i) whole = whole && data[i] == static_cast<uint8_t>(i);
    seen.push_back((whole ? "packet " : "broken packet ") + std::to_string(length));
    return 0;
}

/* libvos opens the real protocol, which is redirected in other tests. */
int realSocket(int domain, int type, int protocol) { return socket(domain, type, protocol); }

void openNetlinkChannel() {
    substitute("socket", realSocket);
    openChannel("A", 3);
    vosMsgRegisterPkt(trapped);
    vosMsgRegisterPortLink(0, linkChanged);
    vosMsgRegisterPortLink(1, linkChanged);
    vosMsgRegisterVlanintfLink(interfaceChanged);
}

/* Runs the receive loop until no message is left. */
void serveAll() {
    while (receive(100, 0).result != VOS_ERR_TIMEOUT) {
    }
}

/* Sends orders to the kernel module. */
class Module {
  public:
    Module() : fd_(socket(AF_NETLINK, SOCK_RAW, VOSDEVICE_PROTOCOL)) {
        EXPECT_GE(fd_, 0) << "this kernel has no such protocol: " << strerror(errno);
        const timeval limit{20, 0};
        setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        /* A port other than the process id. libvos binds the process id, and the kernel would choose it here when it is
         * free. */
        sockaddr_nl own{};
        own.nl_family = AF_NETLINK;
        own.nl_pid = 0x40000000U | static_cast<uint32_t>(getpid());
        EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr *>(&own), sizeof own), 0);
    }
    Module(const Module &) = delete;
    Module &operator=(const Module &) = delete;
    ~Module() { close(fd_); }

    /* Has the kernel module send messages to this process. Returns how many of them the queue has taken. */
    [[nodiscard]] uint32_t send(uint32_t kind, uint32_t count, uint32_t length, std::array<uint32_t, 4> values) const {
        struct {
            nlmsghdr outer{};
            vosdevice_order order{};
        } message;
        message.outer.nlmsg_len = sizeof message;
        message.order.kind = kind;
        message.order.port = static_cast<uint32_t>(getpid());
        message.order.count = count;
        message.order.length = length;
        std::copy(values.begin(), values.end(), message.order.values);
        sockaddr_nl kernel{};
        kernel.nl_family = AF_NETLINK;
        EXPECT_EQ(sendto(fd_, &message, sizeof message, 0, reinterpret_cast<sockaddr *>(&kernel), sizeof kernel),
                  static_cast<ssize_t>(sizeof message));
        struct {
            nlmsghdr outer;
            uint32_t sent;
        } answer{};
        EXPECT_EQ(recv(fd_, &answer, sizeof answer, 0), static_cast<ssize_t>(sizeof answer));
        EXPECT_EQ(answer.outer.nlmsg_type, NLMSG_DONE);
        return answer.sent;
    }
    [[nodiscard]] uint32_t packet(uint32_t length, uint32_t count = 1) const {
        return send(VOSDEVICE_PACKET, count, length, {});
    }
    [[nodiscard]] uint32_t link(std::array<uint32_t, 4> values) const { return send(VOSDEVICE_LINK, 1, 0, values); }

  private:
    int fd_;
};

}  // namespace

TEST(KernelModule, PacketsOfEveryLengthReachTheirHandlerWhole) {
    const Outcome outcome = run([] {
        openNetlinkChannel();
        const Module module;
        for (const uint32_t length : {0U, 1U, 60U, 1514U, 9000U, 60000U}) EXPECT_EQ(module.packet(length), 1U);
        serveAll();
        EXPECT_THAT(seen,
                    ElementsAre("packet 0", "packet 1", "packet 60", "packet 1514", "packet 9000", "packet 60000"));
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(KernelModule, LinkChangesReachTheHandlersOfTheirKind) {
    const Outcome outcome = run([] {
        openNetlinkChannel();
        const Module module;
        EXPECT_EQ(module.link({0, 12, 13, 0}), 1U);
        EXPECT_EQ(module.link({1, 14, 15, 0}), 1U);
        EXPECT_EQ(module.link({2, 16, 17, 18}), 1U);
        serveAll();
        EXPECT_THAT(seen, ElementsAre("port 12 13", "port 14 15", "vlan 16 17 18"));
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(KernelModule, AnUnknownTypeIsRejectedWithThreeLines) {
    const Outcome outcome = run([] {
        openNetlinkChannel();
        EXPECT_EQ(Module{}.send(VOSDEVICE_UNKNOWN, 1, 0, {77, 5}), 1U);
        serveAll();
        EXPECT_THAT(seen, IsEmpty());
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosMsgNetlinkUniProcess:receive invalid msg type 77 msg len 48 buf len 32.",
                            "vosMsgNetlinkUniProcess:msg header content:len 48 flag 0 type 0 pid 0.",
                            "vosMsgNetlinkUniProcess:vos header content:type 77 buferlen 0 value1 5."));
}

TEST(KernelModule, AMalformedMessageIsDroppedWithOneLine) {
    for (const uint32_t length : {0U, 1U, 16U, 31U}) {
        const Outcome outcome = run([=] {
            openNetlinkChannel();
            const Module module;
            EXPECT_EQ(module.send(VOSDEVICE_SHORT, 1, length, {}), 1U);
            EXPECT_EQ(module.packet(60), 1U);
            serveAll();
            EXPECT_THAT(seen, ElementsAre("packet 60")) << "the loop goes on";
        });
        EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgNetlinkUniProcess:message of " +
                                                    std::to_string(NLMSG_HDRLEN + length) + " bytes is too short."));
    }
}

TEST(KernelModule, AnOverrunQueueIsSeenOnceAndWhatItHadTakenIsServed) {
    const Outcome outcome = run([] {
        openNetlinkChannel();
        const Module module;
        constexpr uint32_t kFlood = 100000;
        const uint32_t taken = module.packet(60, kFlood);
        EXPECT_GT(taken, 0U);
        ASSERT_LT(taken, kFlood) << "nothing overran";
        serveAll();
        EXPECT_EQ(seen.size(), taken);
        EXPECT_THAT(seen, Each("packet 60"));
        seen.clear();
        EXPECT_EQ(module.packet(61), 1U);
        serveAll();
        EXPECT_THAT(seen, ElementsAre("packet 61")) << "reading goes on";
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(errnoLine("vosMsgRecvStream:recvfrom", ENOBUFS),
                                                "vosMsgNetlinkUniProcess:vosMsgRecvStream failed."));
}

TEST(KernelModule, EachNetworkNamespaceHasTheProtocolToItself) {
    run([] {
        openNetlinkChannel();
        ASSERT_EQ(unshare(CLONE_NEWNET), 0);
        const Module elsewhere;
        EXPECT_EQ(elsewhere.packet(60), 0U) << "no socket of that port is in that namespace";
        serveAll();
        EXPECT_THAT(seen, IsEmpty());
    });
    run([] {
        ASSERT_EQ(unshare(CLONE_NEWNET), 0);
        openNetlinkChannel();
        EXPECT_EQ(Module{}.packet(60), 1U);
        serveAll();
        EXPECT_THAT(seen, ElementsAre("packet 60"));
    });
}
