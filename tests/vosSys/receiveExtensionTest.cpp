/* SPDX-License-Identifier: MIT */
#include <gmock/gmock.h>

#include <array>
#include <cstring>

#include "sockets.h"
#include "support/child.h"
#include "support/substitute.h"
#include "vos.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/* A kernel that appends extension data to every datagram. */
int flagsSeen = 0;
socklen_t nameLengthSeen = 0;
ssize_t recvmsgOfTheDevice(int /*fd*/, msghdr *header, int flags) {
    flagsSeen = flags;
    nameLengthSeen = header->msg_namelen;
    EXPECT_EQ(header->msg_control, nullptr);
    EXPECT_EQ(header->msg_controllen, 0U);
    EXPECT_EQ(header->msg_iovlen, 5U);
    unsigned char next = 1;
    ssize_t length = 0;
    for (std::size_t part = 0; part < header->msg_iovlen; ++part)
        for (std::size_t i = 0; i < header->msg_iov[part].iov_len; ++i, ++length)
            static_cast<unsigned char *>(header->msg_iov[part].iov_base)[i] = next++;
    return length;
}

}  // namespace

TEST(ReceiveExtension, AKernelThatAppendsNothingLeavesTheWordsOne) {
    run([] {
        Address a;
        Address b;
        const int receiver = boundTo(a, SOCK_DGRAM);
        const int sender = boundTo(b, SOCK_DGRAM);
        ASSERT_EQ(vosSendto(sender, "0123456789", 10, 0, a.get(), Address::size), 10);
        char payload[100];
        memset(payload, '-', sizeof payload);
        VOS_RECV_EXT extension;
        memset(&extension, 0xEE, sizeof extension);
        Address from;
        uint32_t length = 12345;
        EXPECT_EQ(vosRecvfromExt(receiver, payload, sizeof payload, 0, from.get(), &length, &extension), 10);
        EXPECT_EQ(std::string(payload, 11), "0123456789-");
        EXPECT_EQ(extension.ulWord1, 1U);
        EXPECT_EQ(extension.ulWord2, 1U);
        EXPECT_EQ(extension.ulWord3, 1U);
        EXPECT_THAT(extension.aucData, testing::Each(0));
        EXPECT_EQ(from.in.sin_port, b.in.sin_port);
        EXPECT_EQ(length, 12345U) << "neither read nor written";
    });
}

TEST(ReceiveExtension, ADatagramThatIsLongerThanTheBufferRunsIntoTheExtension) {
    run([] {
        Address a;
        const int receiver = boundTo(a, SOCK_DGRAM);
        const int sender = socket(AF_INET, SOCK_DGRAM, 0);
        char sent[60];
        for (std::size_t i = 0; i < sizeof sent; ++i) sent[i] = static_cast<char>(i);
        ASSERT_EQ(vosSendto(sender, sent, sizeof sent, 0, a.get(), Address::size), 60);
        char payload[10];
        VOS_RECV_EXT extension;
        EXPECT_EQ(vosRecvfromExt(receiver, payload, sizeof payload, 0, nullptr, nullptr, &extension), 50);
        EXPECT_EQ(memcmp(payload, sent, 10), 0);
        EXPECT_EQ(memcmp(&extension, sent + 10, 40), 0);
    });
}

TEST(ReceiveExtension, TheDevicesKernelIsAskedAndItsBytesArePassedOn) {
    run([] {
        substitute("recvmsg", recvmsgOfTheDevice);
        char payload[4];
        VOS_RECV_EXT extension;
        Address from;
        EXPECT_EQ(vosRecvfromExt(0, payload, sizeof payload, MSG_DONTWAIT, from.get(), nullptr, &extension), 44);
        EXPECT_EQ(flagsSeen, MSG_DONTWAIT | 0x0F000000);
        EXPECT_EQ(nameLengthSeen, 16U);
        unsigned char expected[44];
        for (std::size_t i = 0; i < sizeof expected; ++i) expected[i] = static_cast<unsigned char>(i + 1);
        EXPECT_EQ(memcmp(payload, expected, 4), 0);
        EXPECT_EQ(memcmp(&extension, expected + 4, 40), 0);
        vosRecvfromExt(0, payload, sizeof payload, 0x0F000000 | MSG_PEEK, nullptr, nullptr, &extension);
        EXPECT_EQ(flagsSeen, MSG_PEEK | 0x0F000000);
    });
}

TEST(ReceiveExtension, OfALongerSenderAddressSixteenBytesAreWritten) {
    run([] {
        sockaddr_in6 address{};
        address.sin6_family = AF_INET6;
        address.sin6_addr = in6addr_loopback;
        auto *const any = reinterpret_cast<sockaddr *>(&address);
        const int receiver = socket(AF_INET6, SOCK_DGRAM, 0);
        ASSERT_EQ(bind(receiver, any, sizeof address), 0);
        uint32_t length = sizeof address;
        ASSERT_EQ(vosGetsockname(receiver, any, &length), 0);
        const int sender = socket(AF_INET6, SOCK_DGRAM, 0);
        ASSERT_EQ(vosSendto(sender, "x", 1, 0, any, sizeof address), 1);
        std::array<unsigned char, sizeof address> from{};
        from.fill(0xEE);
        char payload[10];
        VOS_RECV_EXT extension;
        EXPECT_EQ(vosRecvfromExt(receiver, payload, sizeof payload, 0, reinterpret_cast<sockaddr *>(from.data()),
                                 &length, &extension),
                  1);
        uint16_t family = 0;
        memcpy(&family, from.data(), sizeof family);
        EXPECT_EQ(family, AF_INET6);
        EXPECT_EQ(from[15], 0) << "a byte of the loopback address";
        for (std::size_t i = 16; i < from.size(); ++i) EXPECT_EQ(from.at(i), 0xEE) << i;
    });
}

TEST(ReceiveExtension, WithoutADatagramTheRecordIsNotTouched) {
    const Outcome outcome = run([] {
        Address a;
        const int receiver = boundTo(a, SOCK_DGRAM);
        VOS_RECV_EXT extension;
        memset(&extension, 0xEE, sizeof extension);
        char payload[10];
        EXPECT_EQ(vosRecvfromExt(receiver, payload, 10, MSG_DONTWAIT, nullptr, nullptr, &extension), -1);
        EXPECT_EQ(errno, EAGAIN);
        const int sender = socket(AF_INET, SOCK_DGRAM, 0);
        ASSERT_EQ(vosSendto(sender, "", 0, 0, a.get(), Address::size), 0);
        EXPECT_EQ(vosRecvfromExt(receiver, payload, 10, 0, nullptr, nullptr, &extension), 0);
        EXPECT_EQ(extension.ulWord1, 0xEEEEEEEEU);
        EXPECT_EQ(extension.aucData[27], 0xEE);
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(ReceiveExtension, NullIsRefused) {
    const Outcome outcome = run([] {
        char payload[10];
        EXPECT_EQ(vosRecvfromExt(0, payload, 10, 0, nullptr, nullptr, nullptr), VOS_ERR_PARAM);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosRecvfromExt:parameter error."));
}
