/* SPDX-License-Identifier: MIT */
#include "vosSysConfig/partitions.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string kDefault("123456789\0", 10);

void putSerial(const std::string &serial) {
    std::string body = erasedBody(kFactory);
    body.replace(16, serial.size(), serial);
    putFile(kFactory.path, partitionOf(body));
}

/* The content of a buffer of 40 bytes after a call with a length. */
std::string serialWith(int32_t length) {
    std::string buffer(40, '.');
    EXPECT_EQ(vosProdSerialNoRead(buffer.data(), length), VOS_OK);
    return buffer;
}

std::string serialText() { return serialWith(40).c_str(); }

}  // namespace

TEST(SerialNumber, AFreshPartitionGivesTheDefault) {
    putErased();
    run([] { EXPECT_EQ(serialText(), "123456789"); });
}

TEST(SerialNumber, APrintableOneIsReturnedUnchanged) {
    putSerial("SN-0001" + std::string(25, '\0'));
    run([] { EXPECT_EQ(serialWith(32), "SN-0001" + std::string(25, '\0') + "........"); });
}

TEST(SerialNumber, ControlAndNonAsciiCharactersGiveTheDefault) {
    for (const char *const serial : {"SN\t1", "SN\x7F", "SN\x1F", "SN\xC3\xA9", "\xFFSN"}) {
        putSerial(serial + std::string(1, '\0'));
        run([] { EXPECT_EQ(serialText(), "123456789"); });
    }
    putSerial(std::string(" ~") + '\0');
    run([] { EXPECT_EQ(serialText(), " ~"); });
}

TEST(SerialNumber, AnEmptyOneGivesTheDefault) {
    putSerial(std::string(32, '\0'));
    run([] { EXPECT_EQ(serialText(), "123456789"); });
}

TEST(SerialNumber, WhatFollowsTheEndOfTheTextDoesNotMatter) {
    putSerial(std::string("SN\0\t\x7F", 5));
    run([] { EXPECT_EQ(serialText(), "SN"); });
}

TEST(SerialNumber, AllOf32CharactersGetATerminatorWhereThereIsRoom) {
    const std::string serial(32, 'S');
    putSerial(serial);
    run([&] {
        EXPECT_EQ(serialWith(32), serial + "........");
        EXPECT_EQ(serialWith(33), serial + '\0' + ".......");
    });
}

TEST(SerialNumber, ALengthOf16GivesTheDefaultBecauseTheItemNeeds32) {
    putSerial("SN-0001" + std::string(25, '\0'));
    const Outcome outcome = run([] { EXPECT_EQ(serialWith(16), kDefault + std::string(30, '.')); });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosSysConfigDataGet:BSP_SERIAL_NUMBER invalid len.", "vosSysConfigDataGet:error exit."));
}

TEST(SerialNumber, ALengthBelow10GivesWhatFitsTerminated) {
    putErased();
    run([] {
        EXPECT_EQ(serialWith(10), kDefault + std::string(30, '.'));
        EXPECT_EQ(serialWith(9), std::string("12345678\0", 9) + std::string(31, '.'));
        EXPECT_EQ(serialWith(2), std::string("1\0", 2) + std::string(38, '.'));
        EXPECT_EQ(serialWith(1), std::string(1, '\0') + std::string(39, '.'));
        EXPECT_EQ(serialWith(0), std::string(40, '.'));
        EXPECT_EQ(serialWith(-1), std::string(40, '.'));
        EXPECT_EQ(serialWith(INT32_MIN), std::string(40, '.'));
    });
}

TEST(SerialNumber, WithoutAPartitionItIsTheDefaultAndANullBufferIsLogged) {
    const Outcome outcome = run([] {
        EXPECT_EQ(serialText(), "123456789");
        EXPECT_EQ(vosProdSerialNoRead(nullptr, 40), VOS_OK);
    });
    EXPECT_EQ(outcome.messages().back(), "vosSysConfigDataGet:parameter error.");
}

TEST(SerialNumber, EachFailingCallGivesTheDefault) {
    const auto attempts = failEachCall([] { putSerial("SN" + std::string(30, '\0')); },
                                       [] { return serialText() == "123456789" ? 1L : 0L; });
    expectNothingKept(attempts);
    for (const char *const call : {"malloc#1", "open#1", "read#1"}) EXPECT_EQ(at(attempts, call).result, 1) << call;
    for (const char *const call : {"flock#1", "flock#2", "close#1"}) EXPECT_EQ(at(attempts, call).result, 0) << call;
}

TEST(Versions, BootromWritesExactly4BytesAndHardwareIs1) {
    const Outcome outcome = run([] {
        vosDebugConfig(VOS_DEBUG_ERROR | VOS_DEBUG_TRACE);
        std::string buffer(8, '.');
        EXPECT_EQ(vosBootromVersionGet(buffer.data(), 8), VOS_OK);
        EXPECT_EQ(buffer, std::string("1.0\0....", 8));
        EXPECT_EQ(vosHardwareVersionGet(), 1);
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosBootromVersionGet:start iBufLen 8.", "vosHardwareVersionGet:start."));
}

TEST(Versions, BootromWritesNoMoreThanTheLengthBelow4) {
    const Outcome outcome = run([] {
        for (int32_t length = -1; length < 4; ++length) {
            std::string buffer(8, '.');
            EXPECT_EQ(vosBootromVersionGet(buffer.data(), length), VOS_OK);
            const auto kept = static_cast<std::size_t>(std::max(length, 0));
            EXPECT_EQ(buffer.substr(kept), std::string(8 - kept, '.'));
            if (length > 0) {
                EXPECT_EQ(buffer[kept - 1], '\0');
            }
        }
        EXPECT_EQ(vosBootromVersionGet(nullptr, 4), VOS_OK);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosBootromVersionGet:parameter error."));
}
