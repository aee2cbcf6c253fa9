/* SPDX-License-Identifier: MIT */
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netdb.h>
#include <sys/socket.h>

#include <cstring>

#include "support/faults.h"
#include "support/substitute.h"
#include "vos.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint32_t kInvalid = 0xFFFFFFFFU;

}  // namespace

TEST(DottedAddress, MissingPartsAreZeros) {
    run([] {
        EXPECT_EQ(vosInetAddr("10.1"), inet_addr("10.1.0.0"));
        EXPECT_EQ(vosInetAddr("10"), inet_addr("10.0.0.0"));
        EXPECT_EQ(vosInetAddr("192.168.1"), inet_addr("192.168.1.0"));
        EXPECT_EQ(vosInetAddr("1.2.3.4"), inet_addr("1.2.3.4"));
        EXPECT_EQ(vosInetAddr("0x0A.010"), inet_addr("10.8.0.0")) << "parts as inet_addr reads them";
    });
}

TEST(DottedAddress, ATextThatIsNoAddressIsAllOnes) {
    const Outcome outcome = run([] {
        for (const char *const text : {"", ".", "...", "1..2.3", "256", "1.2.3.4.5", "a.b.c.d", "1.2.3.4x", "10."})
            EXPECT_EQ(vosInetAddr(text), kInvalid) << text;
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(DottedAddress, OfAtMost31CharactersIsReadAndALongerOneIsInvalid) {
    run([] {
        const std::string zeros(29, '0');
        EXPECT_EQ(vosInetAddr((zeros + "7").c_str()), inet_addr("7.0.0.0"));
        EXPECT_EQ(vosInetAddr((zeros + "07").c_str()), inet_addr("7.0.0.0")) << "31 characters";
        EXPECT_EQ(vosInetAddr((zeros + "007").c_str()), kInvalid) << "32 characters";
        EXPECT_EQ(vosInetAddr((zeros + ".7").c_str()), inet_addr("0.7.0.0"));
        EXPECT_EQ(vosInetAddr(("1.2.3.4" + std::string(100000, ' ')).c_str()), kInvalid);
    });
}

TEST(DottedAddress, NullIsRefused) {
    const Outcome outcome = run([] { EXPECT_EQ(vosInetAddr(nullptr), kInvalid); });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosInetAddr:parameter error."));
}

TEST(AddressText, IsConvertedInBothDirections) {
    run([] {
        in_addr address{};
        EXPECT_EQ(vosInetPton(AF_INET, "127.0.0.1", &address), 1);
        EXPECT_EQ(ntohl(address.s_addr), 0x7F000001U);
        EXPECT_STREQ(vosInetNtoA(address.s_addr), "127.0.0.1");
        char text[INET6_ADDRSTRLEN];
        EXPECT_EQ(vosInetNtop(AF_INET, &address, text, sizeof text), text);
        EXPECT_STREQ(text, "127.0.0.1");
        in6_addr wide{};
        EXPECT_EQ(vosInetPton(AF_INET6, "fe80::1", &wide), 1);
        EXPECT_STREQ(vosInetNtop(AF_INET6, &wide, text, sizeof text), "fe80::1");
        EXPECT_EQ(vosInetPton(AF_INET, "nonsense", &address), 0);
        EXPECT_EQ(vosInetPton(9999, "127.0.0.1", &address), -1);
        EXPECT_EQ(errno, EAFNOSUPPORT);
        EXPECT_EQ(vosInetNtop(AF_INET, &address, text, 4), nullptr);
        EXPECT_EQ(errno, ENOSPC);
    });
}

TEST(AddressText, NullIsRefused) {
    const Outcome outcome = run([] {
        in_addr address{};
        char text[16];
        EXPECT_EQ(vosInetPton(AF_INET, nullptr, &address), VOS_ERR_PARAM);
        EXPECT_EQ(vosInetPton(AF_INET, "1.2.3.4", nullptr), VOS_ERR_PARAM);
        EXPECT_EQ(vosInetNtop(AF_INET, nullptr, text, 16), nullptr);
        EXPECT_EQ(vosInetNtop(AF_INET, &address, nullptr, 16), nullptr);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosInetPton:parameter error.", "vosInetPton:parameter error.",
                                                "vosInetNtop:parameter error.", "vosInetNtop:parameter error."));
}

TEST(HostAddress, IsInHostOrder) {
    run([] {
        EXPECT_EQ(vosGetAddrIpv4("127.0.0.1"), 2130706433U);
        EXPECT_EQ(vosGetAddrIpv4("localhost"), 0x7F000001U);
        EXPECT_EQ(vosGetAddrIpv4("255.1.2.3"), 0xFF010203U);
    });
}

TEST(HostAddress, OfANameThatCannotBeLookedUpIsZero) {
    const Outcome outcome = run([] {
        EXPECT_EQ(vosGetAddrIpv4("no-such-host.invalid"), 0U);
        EXPECT_EQ(vosGetAddrIpv4("::1"), 0U);
        EXPECT_EQ(vosGetAddrIpv4(""), 0U);
        EXPECT_EQ(vosGetAddrIpv4(nullptr), 0U);
        EXPECT_EQ(vosGetAddrIpv4("0.0.0.0"), 0U) << "cannot be told from a failure";
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(HostAddress, OfAListWithoutAnAddressIsZeroAndTheListIsFreed) {
    run([] {
        static int freed = 0;
        static addrinfo empty{};
        substitute(
            "getaddrinfo", +[](const char *host, const char *service, const addrinfo *hints, addrinfo **list) {
                EXPECT_STREQ(host, "host");
                EXPECT_EQ(service, nullptr);
                EXPECT_EQ(hints->ai_flags, 1);
                EXPECT_EQ(hints->ai_family, 2);
                EXPECT_EQ(hints->ai_socktype, 0);
                EXPECT_EQ(hints->ai_protocol, 0);
                *list = &empty;
                return 0;
            });
        substitute(
            "freeaddrinfo", +[](addrinfo *list) { freed += list == &empty ? 1 : 0; });
        EXPECT_EQ(vosGetAddrIpv4("host"), 0U);
        EXPECT_EQ(freed, 1);
        substitute(
            "getaddrinfo", +[](const char *, const char *, const addrinfo *, addrinfo **) { return 0; });
        EXPECT_EQ(vosGetAddrIpv4("host"), 0U) << "no list";
        EXPECT_EQ(freed, 1);
    });
}

TEST(HostAddress, AFailedLookUpIsZero) {
    const Attempt failed = failCall(
        {.call = "getaddrinfo", .error = EAI_AGAIN}, [] {}, [] { return vosGetAddrIpv4("localhost"); });
    EXPECT_EQ(failed.result, 0);
    EXPECT_THAT(failed.messages, IsEmpty());
}
