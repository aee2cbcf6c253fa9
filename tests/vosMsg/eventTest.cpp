/* SPDX-License-Identifier: MIT */
/* Events: the registration of handlers, their arguments, and the kernel's messages over netlink. */
#include <fcntl.h>
#include <linux/netlink.h>
#include <sys/resource.h>

#include "peer.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> seen;

void see(std::string name, std::initializer_list<uint32_t> words) {
    for (const uint32_t word : words) name += " " + std::to_string(word);
    seen.push_back(name);
}

int32_t apLink(uint32_t a, uint32_t b) { return see("ap", {a, b}), 0; }
int32_t agLink(uint32_t a, uint32_t b) { return see("ag", {a, b}), 0; }
int32_t vlanLink(uint32_t a, uint32_t b, uint32_t c) { return see("vlan", {a, b, c}), 0; }
int32_t mac(uint32_t a, uint32_t b, uint32_t c, void *payload) {
    see(std::string(static_cast<const char *>(payload), 3), {a, b, c});
    return 0;
}
int32_t packet(uint8_t *data, int32_t length, VOS_PKT_INFO info, VOS_PKT_EXT ext) {
    see(std::string(data, data + length), {info.aucData[0], info.aucData[87], ext.aucData[0], ext.aucData[55]});
    return 0;
}
int32_t otherPacket(uint8_t *, int32_t length, VOS_PKT_INFO, VOS_PKT_EXT) {
    return see("other", {static_cast<uint32_t>(length)}), 0;
}

Bytes link(uint32_t kind) {
    return message({.type = VOS_MSG_TYPE_LINK, .value1 = kind, .value2 = 12, .value3 = 13, .value4 = 14});
}

Bytes trapped(uint32_t length, std::string_view data) {
    Bytes bytes = message({.type = VOS_MSG_TYPE_PACKET, .value1 = length}).fill(2, 0xEE).text(data);
    return bytes.fill(1, 1).fill(86, 0).fill(1, 2).fill(1, 3).fill(54, 0).fill(1, 4);
}

void registerAll() {
    vosMsgRegisterPkt(packet);
    vosMsgRegisterPortLink(0, apLink);
    vosMsgRegisterPortLink(1, agLink);
    vosMsgRegisterVlanintfLink(vlanLink);
    vosMsgRegisterMac(mac);
}

/* Sends to the process's own normal socket and runs the receive loop until no message is left. */
void serve(const Bytes &bytes) {
    EXPECT_TRUE(Peer{}.send("/tmp/vos/A", bytes));
    EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
}

/* Sends in place of the kernel: a unicast message to the process's netlink socket. */
class Kernel {
  public:
    Kernel() : fd_(socket(AF_NETLINK, SOCK_RAW, NETLINK_USERSOCK)) {}
    Kernel(const Kernel &) = delete;
    Kernel &operator=(const Kernel &) = delete;
    ~Kernel() { close(fd_); }

    void send(const Bytes &payload, uint16_t type = 0) const {
        nlmsghdr outer{};
        outer.nlmsg_len = static_cast<uint32_t>(sizeof outer + payload.size());
        outer.nlmsg_type = type;
        outer.nlmsg_flags = 5;
        outer.nlmsg_pid = 99;
        sendRaw(Bytes{}.raw(&outer, sizeof outer).raw(payload.data(), payload.size()));
    }
    void sendRaw(const Bytes &bytes) const {
        sockaddr_nl to{};
        to.nl_family = AF_NETLINK;
        to.nl_pid = static_cast<uint32_t>(getpid());
        EXPECT_EQ(sendto(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr *>(&to), sizeof to),
                  static_cast<ssize_t>(bytes.size()));
    }

  private:
    int fd_;
};

}  // namespace

TEST(Handlers, EachRegistrationFillsItsSlotAndNullEmptiesIt) {
    run([] {
        registerAll();
        EXPECT_EQ(g_vosPktProc, packet);
        EXPECT_EQ(g_vosApLinktrapProc, apLink);
        EXPECT_EQ(g_vosAgLinktrapProc, agLink);
        EXPECT_EQ(g_vosVlanintfLinktrapProc, vlanLink);
        EXPECT_EQ(g_vosMacTrapProc, mac);
        EXPECT_EQ(vosMsgRegisterPkt(nullptr), VOS_OK);
        EXPECT_EQ(vosMsgRegisterPortLink(0, nullptr), VOS_OK);
        EXPECT_EQ(vosMsgRegisterPortLink(1, nullptr), VOS_OK);
        EXPECT_EQ(vosMsgRegisterVlanintfLink(nullptr), VOS_OK);
        EXPECT_EQ(vosMsgRegisterMac(nullptr), VOS_OK);
        EXPECT_EQ(vosMsgRegisterBldrun(nullptr), VOS_OK);
        EXPECT_EQ(vosMsgRegisterCcd(nullptr), VOS_OK);
        EXPECT_EQ(vosMsgRegisterCcdObjInfoGet(nullptr), VOS_OK);
        EXPECT_EQ(g_vosPktProc, nullptr);
        EXPECT_EQ(g_vosApLinktrapProc, nullptr);
        EXPECT_EQ(g_vosAgLinktrapProc, nullptr);
        EXPECT_EQ(g_vosVlanintfLinktrapProc, nullptr);
        EXPECT_EQ(g_vosMacTrapProc, nullptr);
        EXPECT_EQ(g_vosBldrunProc, nullptr);
        EXPECT_EQ(g_vosCcdProc, nullptr);
        EXPECT_EQ(g_vosCcdObjInfoGetProc, nullptr);
    });
}

TEST(Handlers, APortKindOtherThanZeroAndOneLeavesBothSlots) {
    const Outcome outcome = run([] {
        registerAll();
        EXPECT_EQ(vosMsgRegisterPortLink(2, apLink), VOS_ERR_PARAM);
        EXPECT_EQ(vosMsgRegisterPortLink(0xFFFFFFFF, nullptr), VOS_ERR_PARAM);
        EXPECT_EQ(g_vosApLinktrapProc, apLink);
        EXPECT_EQ(g_vosAgLinktrapProc, agLink);
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosMsgRegisterPortLink:parameter error.", "vosMsgRegisterPortLink:parameter error."));
}

TEST(Handlers, TheTracesOfTheRegistrations) {
    const Outcome outcome = run([] {
        vosDebugConfig(VOS_DEBUG_TRACE);
        vosMsgRegisterPkt(nullptr);
        vosMsgRegisterPortLink(1, nullptr);
        vosMsgRegisterVlanintfLink(nullptr);
        vosMsgRegisterMac(nullptr);
        vosMsgRegisterBldrun(nullptr);
        vosMsgRegisterCcd(nullptr);
        vosMsgRegisterCcdObjInfoGet(nullptr);
    });
    EXPECT_THAT(
        outcome.messages(),
        ElementsAre("vosMsgRegisterPkt:end return 0.", "vosMsgRegisterPortLink:start.",
                    "vosMsgRegisterPortLink:end return 0.", "vosMsgRegisterVlanintfLink:end return 0.",
                    "vosMsgRegisterMac:start.", "vosMsgRegisterMac:end return 0.", "vosMsgRegisterBldrun:end return 0.",
                    "vosMsgRegisterCcd:end return 0.", "vosMsgRegisterCcdObjInfoGet:end return 0."));
}

TEST(Events, ALinkEventReachesTheHandlerOfItsKind) {
    run([] {
        openChannel("A");
        registerAll();
        for (const uint32_t kind : {0u, 1u, 2u, 3u}) serve(link(kind));
        EXPECT_THAT(seen, ElementsAre("ap 12 13", "ag 12 13", "vlan 12 13 14"));
    });
}

TEST(Events, ALinkEventWithoutItsHandlerCallsNoOther) {
    run([] {
        openChannel("A");
        vosMsgRegisterPortLink(1, agLink);
        serve(link(0));
        serve(link(2));
        EXPECT_THAT(seen, IsEmpty());
    });
}

TEST(Events, AMacEventPassesItsWordsAndTheAddressOfItsPayload) {
    run([] {
        openChannel("A");
        registerAll();
        serve(message({.type = VOS_MSG_TYPE_MAC, .value1 = 1, .value2 = 2, .value3 = 3}, "mac"));
        EXPECT_THAT(seen, ElementsAre("mac 1 2 3"));
    });
}

TEST(Events, APacketPassesDataAndBothRecords) {
    run([] {
        openChannel("A");
        registerAll();
        serve(trapped(7, "packet!"));
        serve(trapped(0, ""));
        EXPECT_THAT(seen, ElementsAre("packet! 1 2 3 4", " 1 2 3 4"));
    });
}

TEST(Events, ASecondPacketHandlerReplacesTheFirst) {
    run([] {
        openChannel("A");
        registerAll();
        vosMsgRegisterPkt(otherPacket);
        serve(trapped(7, "packet!"));
        EXPECT_THAT(seen, ElementsAre("other 7"));
    });
}

TEST(Events, APacketLengthBeyondTheMessageIsDroppedWithOneLine) {
    const auto dropped = [](uint32_t length, const Bytes &bytes) {
        const Outcome outcome = run([&] {
            openChannel("A");
            registerAll();
            serve(bytes);
            EXPECT_THAT(seen, IsEmpty());
        });
        EXPECT_THAT(outcome.messages(),
                    ElementsAre("vosMsgProcessInternel:packet of " + std::to_string(length) +
                                " bytes does not fit its message of " + std::to_string(bytes.size()) + "."));
    };
    for (const uint32_t length : {8u, 64422u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFF6Eu, 0xFFFFFFFEu, 0xFFFFFFFFu})
        dropped(length, trapped(length, "packet!"));
    dropped(0, message({.type = VOS_MSG_TYPE_PACKET}));
    dropped(0, message({.type = VOS_MSG_TYPE_PACKET}).fill(1));
    dropped(0, message({.type = VOS_MSG_TYPE_PACKET}).fill(2 + 88 + 55));
}

TEST(Events, WithoutHandlersEventsAreDroppedSilently) {
    const Outcome outcome = run([] {
        openChannel("A");
        serve(link(0));
        serve(message({.type = VOS_MSG_TYPE_MAC}));
        serve(trapped(0xFFFFFFFF, ""));
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(Events, TheirTracesHaveTheirOwnLevel) {
    const Outcome outcome = run([] {
        openChannel("A");
        registerAll();
        vosDebugConfig(VOS_DEBUG_EVENT);
        serve(link(2));
        serve(message({.type = VOS_MSG_TYPE_MAC, .value1 = 1, .value2 = 2, .value3 = 3, .value4 = 4}, "mac"));
        serve(trapped(7, "packet!"));
    });
    EXPECT_THAT(
        outcome.messages(),
        ElementsAre("vosMsgProcessInternel:receive VOS_MSG_TYPE_LINK value1 2value2 12 value3 13 value4 14",
                    "vosMsgProcessInternel:receive VOS_MSG_TYPE_MAC value1 1value2 2 value3 3 value4 4",
                    "vosMsgProcessInternel:receive VOS_MSG_TYPE_PACKET.", "vosMsgProcessInternel:trap packet len 7."));
}

TEST(Netlink, PacketsAndLinksOfTheKernelReachTheirHandlers) {
    run([] {
        openChannel("A", 3);
        registerAll();
        const Kernel kernel;
        kernel.send(trapped(7, "packet!"));
        kernel.send(link(1));
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        EXPECT_THAT(seen, ElementsAre("packet! 1 2 3 4", "ag 12 13"));
    });
}

TEST(Netlink, TheLastDescriptorOfTheSelectRangeIsServed) {
    run([] {
        const rlimit many{4096, 4096};
        setrlimit(RLIMIT_NOFILE, &many);
        openChannel("A", 3);
        registerAll();
        const int32_t first = g_vosFdNLUni;
        g_vosFdNLUni = fcntl(first, F_DUPFD, 1023);
        EXPECT_EQ(g_vosFdNLUni, 1023);
        Kernel{}.send(link(1));
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        EXPECT_THAT(seen, ElementsAre("ag 12 13"));
        close(g_vosFdNLUni);
        g_vosFdNLUni = first;
    });
}

TEST(Netlink, ADatagramPaddedToItsAlignmentIsTakenAsItIs) {
    run([] {
        openChannel("A", 3);
        registerAll();
        const Kernel kernel;
        for (std::size_t padding = 1; padding <= 3; ++padding) kernel.send(trapped(7, "packet!").fill(padding));
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        EXPECT_EQ(seen.size(), 3u);
    });
}

TEST(Netlink, OneMessageIsServedPerWakeUpAheadOfTheOthers) {
    run([] {
        openChannel("A", 3);
        registerAll();
        const Kernel kernel;
        EXPECT_TRUE(Peer{}.send("/tmp/vos/AHigh", message({.type = VOS_MSG_TYPE_MAC}, "hig")));
        EXPECT_TRUE(Peer{}.send("/tmp/vos/A", application("normal")));
        kernel.send(link(0));
        kernel.send(link(1));
        EXPECT_EQ(receive().bytes.substr(0, 6), "normal");
        EXPECT_THAT(seen, ElementsAre("ap 12 13", "hig 0 0 0"));
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        EXPECT_THAT(seen, ElementsAre("ap 12 13", "hig 0 0 0", "ag 12 13"));
    });
}

TEST(Netlink, AnotherTypeIsRejectedWithThreeLines) {
    const Outcome outcome = run([] {
        openChannel("A", 3);
        registerAll();
        const Kernel kernel;
        kernel.send(message({.type = VOS_MSG_TYPE_MAC, .value1 = 6, .length = 4}).fill(4), 21);
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        EXPECT_THAT(seen, IsEmpty());
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosMsgNetlinkUniProcess:receive invalid msg type 9 msg len 52 buf len 36.",
                            "vosMsgNetlinkUniProcess:msg header content:len 52 flag 5 type 21 pid 99.",
                            "vosMsgNetlinkUniProcess:vos header content:type 9 buferlen 4 value1 6."));
}

TEST(Netlink, ATruncatedMessageIsDroppedWithOneLine) {
    for (const std::size_t size : {1u, 15u, 16u, 20u, 47u}) {
        const Outcome outcome = run([=] {
            openChannel("A", 3);
            registerAll();
            const Kernel kernel;
            kernel.sendRaw(Bytes{}.fill(size, 1));
            EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        });
        EXPECT_THAT(outcome.messages(),
                    ElementsAre("vosMsgNetlinkUniProcess:message of " + std::to_string(size) + " bytes is too short."));
    }
}

TEST(Netlink, APacketBeyondItsDatagramIsDroppedWithOneLine) {
    const Outcome outcome = run([] {
        openChannel("A", 3);
        registerAll();
        const Kernel kernel;
        kernel.send(trapped(8, "packet!"));
        EXPECT_EQ(receive(100, 0).result, VOS_ERR_TIMEOUT);
        EXPECT_THAT(seen, IsEmpty());
    });
    EXPECT_EQ(outcome.messages().size(), 1u);
}

TEST(Netlink, AFailedReceiveIsLoggedAndTheLoopGoesOn) {
    for (const int error : {ENOBUFS, EIO}) {
        const Attempt attempt = failCall(
            {.call = "recvfrom", .error = error},
            [] {
                openChannel("A", 3);
                Kernel{}.send(link(0));
                EXPECT_TRUE(Peer{}.send("/tmp/vos/A", application("normal")));
            },
            [] { return long{receive().result}; });
        EXPECT_EQ(attempt.result, 38);
        EXPECT_THAT(attempt.messages, ElementsAre(errnoLine("vosMsgRecvStream:recvfrom", error),
                                                  "vosMsgNetlinkUniProcess:vosMsgRecvStream failed."));
    }
}

TEST(Netlink, ItsTraceEndsWithTheResult) {
    const Outcome outcome = run([] {
        openChannel("A", 3);
        Kernel{}.send(link(0));
        vosDebugConfig(VOS_DEBUG_TRACE);
        receive(100, 0);
        vosDebugConfig(0);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosMsgRecv:start.", "vosMsgNetlinkUniProcess:start.",
                                                "vosMsgRecvStream:start.", "vosMsgRecvStream:end return 48.",
                                                "vosMsgNetlinkUniProcess:end return 0.", "vosMsgRecv:select timeout."));
}
