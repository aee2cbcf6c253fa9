/* SPDX-License-Identifier: MIT */
#include <gmock/gmock.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "support/faults.h"
#include "support/substitute.h"
#include "vos.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/* The interface that the library asks for, with an address that none here has. */
std::string nameAsked;
int hardwareAddressOfTheTest(int /*fd*/, unsigned long request, ...) {
    EXPECT_EQ(request, 0x8927U);
    va_list list;
    va_start(list, request);
    auto *const asked = va_arg(list, ifreq *);
    va_end(list);
    EXPECT_EQ(asked->ifr_name[IFNAMSIZ - 1], '\0');
    nameAsked = asked->ifr_name;
    const char address[] = "\x02\xFF\x00\x80\x7F\x01\x99\x99";
    memcpy(asked->ifr_hwaddr.sa_data, address, sizeof address);
    return 0;
}

}  // namespace

TEST(Interface, NamesAndIndexesAreTranslated) {
    const Outcome outcome = run([] {
        uint32_t index = 0;
        ASSERT_EQ(vosIfNameToKernelIndex("lo", &index), VOS_OK);
        EXPECT_EQ(index, if_nametoindex("lo"));
        char name[16];
        EXPECT_EQ(vosIfKernelIndexToName(index, name), name);
        EXPECT_STREQ(name, "lo");
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(Interface, WhatDoesNotExistIsNotFound) {
    run([] {
        uint32_t index = 77;
        EXPECT_EQ(vosIfNameToKernelIndex("nowhere", &index), VOS_ERROR);
        EXPECT_EQ(vosIfNameToKernelIndex("", &index), VOS_ERROR);
        EXPECT_EQ(vosIfNameToKernelIndex("a name of far more than sixteen characters", &index), VOS_ERROR);
        EXPECT_EQ(index, 77U);
        char name[16];
        EXPECT_EQ(vosIfKernelIndexToName(0, name), nullptr);
        EXPECT_EQ(vosIfKernelIndexToName(0xFFFFFFFFU, name), nullptr);
        uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
        EXPECT_EQ(vosIfKernelMacGet("nowhere", mac), VOS_ERROR);
        EXPECT_THAT(mac, ElementsAre(1, 2, 3, 4, 5, 6));
    });
}

TEST(Interface, TheMacAddressIsTheFirstSixBytes) {
    run([] {
        substitute("ioctl", hardwareAddressOfTheTest);
        uint8_t mac[8] = {};
        EXPECT_EQ(vosIfKernelMacGet("eth0", mac), VOS_OK);
        EXPECT_THAT(mac, ElementsAre(2, 0xFF, 0, 0x80, 0x7F, 1, 0, 0));
        EXPECT_EQ(nameAsked, "eth0");
    });
}

TEST(Interface, TheLoopbackHasAMacAddressOfZeros) {
    run([] {
        uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
        EXPECT_EQ(vosIfKernelMacGet("lo", mac), VOS_OK);
        EXPECT_THAT(mac, ElementsAre(0, 0, 0, 0, 0, 0));
    });
}

TEST(Interface, OfANameOf20CharactersTheFirst15Count) {
    run([] {
        substitute("ioctl", hardwareAddressOfTheTest);
        uint8_t mac[6];
        EXPECT_EQ(vosIfKernelMacGet("abcdefghijklmnopqrst", mac), VOS_OK);
        EXPECT_EQ(nameAsked, "abcdefghijklmno");
        EXPECT_EQ(vosIfKernelMacGet("abcdefghijklmno", mac), VOS_OK);
        EXPECT_EQ(nameAsked, "abcdefghijklmno");
    });
}

TEST(Interface, EveryFailingCallIsPassedOn) {
    const auto attempts = failEachCall([] {},
                                       [] {
                                           uint32_t index = 0;
                                           char name[16];
                                           uint8_t mac[6];
                                           long result = vosIfNameToKernelIndex("lo", &index);
                                           result += vosIfKernelIndexToName(1, name) == nullptr ? -10 : 0;
                                           return result + 100 * vosIfKernelMacGet("lo", mac);
                                       });
    expectNothingKept(attempts);
    ASSERT_EQ(attempts.size(), 5U);
    EXPECT_EQ(at(attempts, "if_nametoindex#1").result, -1);
    EXPECT_EQ(at(attempts, "if_indextoname#1").result, -10);
    EXPECT_EQ(at(attempts, "socket#1").result, -100);
    EXPECT_EQ(at(attempts, "ioctl#1").result, -100);
    EXPECT_EQ(at(attempts, "close#1").result, 0);
    for (const Attempt &each : attempts) EXPECT_THAT(each.messages, IsEmpty());
}

TEST(Interface, NullIsRefused) {
    const Outcome outcome = run([] {
        uint32_t index = 0;
        uint8_t mac[6];
        EXPECT_EQ(vosIfNameToKernelIndex(nullptr, &index), VOS_ERR_PARAM);
        EXPECT_EQ(vosIfNameToKernelIndex("lo", nullptr), VOS_ERR_PARAM);
        EXPECT_EQ(vosIfKernelMacGet(nullptr, mac), VOS_ERR_PARAM);
        EXPECT_EQ(vosIfKernelMacGet("lo", nullptr), VOS_ERR_PARAM);
        EXPECT_EQ(vosIfKernelIndexToName(1, nullptr), nullptr);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosIfKernelIndexToName:parameter error."));
}

TEST(StartType, IsWarmWhileTheMarkerExists) {
    run([] {
        uint32_t type = 77;
        EXPECT_EQ(vosStartTypeGet(&type), VOS_OK);
        EXPECT_EQ(type, 0U);
        std::ofstream{"/tmp/warmreboot"};
        EXPECT_EQ(vosStartTypeGet(&type), VOS_OK);
        EXPECT_EQ(type, 1U);
        std::filesystem::remove("/tmp/warmreboot");
        EXPECT_EQ(vosStartTypeGet(&type), VOS_OK);
        EXPECT_EQ(type, 0U);
        EXPECT_EQ(vosStartTypeGet(nullptr), VOS_ERR_PARAM);
    });
}

TEST(StartType, AMarkerThatCannotBeLookedForCountsAsAColdStart) {
    const auto attempts = failEachCall([] { std::ofstream{"/tmp/warmreboot"}; },
                                       [] {
                                           uint32_t type = 77;
                                           EXPECT_EQ(vosStartTypeGet(&type), VOS_OK);
                                           return static_cast<long>(type);
                                       });
    EXPECT_EQ(at(attempts, "access#1").result, 0);
}
