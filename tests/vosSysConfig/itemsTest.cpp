/* SPDX-License-Identifier: MIT */
#include "vosSysConfig/partitions.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct Item {
    int32_t number;
    const char *name;
    bool factory;
    uint32_t offset;
    uint32_t size;
    bool lengthIsSigned;
};

/* A second copy of the library's table, so that an error in it is found. */
const Item kItems[] = {
    {0, "BSP_SYS_MAC", true, 0, 6, true},
    {1, "BSP_DEFAULT_MAC", true, 6, 6, true},
    {2, "BSP_OEM_NUMBER", true, 12, 4, false},
    {3, "BSP_SERIAL_NUMBER", true, 16, 32, true},
    {4, "BSP_FLASH_DATA_VERSION", false, 0, 4, false},
    {5, "BSP_IP_ADDRESS", false, 4, 4, false},
    {6, "BSP_IP_MASK", false, 8, 4, false},
    {7, "BSP_IP_GATE", false, 12, 4, false},
    {8, "BSP_BANDRATE", false, 16, 4, false},
    {9, "BSP_ADMIN_PASSWORD", false, 20, 36, true},
    {10, "BSP_PRIVMODE_PWD", false, 668, 36, true},
    {12, "BSP_BOOTTIME", false, 56, 4, false},
    {16, "BSP_USER", false, 72, 476, false},
    {18, "BSP_OEM_INFO", true, 48, 1024, true},
    {19, "BSP_MACLEARNING_MODE", false, 560, 4, false},
    {20, "BSP_MACHASH_MODE", false, 564, 4, false},
    {22, "BSP_ZTP", false, 664, 4, false},
};

std::string pattern(uint32_t size, int salt) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7 + static_cast<std::size_t>(salt));
    return bytes;
}

const std::string kStackMagic = nativeWord(0x5AA55AA5);

std::string getStack() {
    std::string value(24, '.');
    EXPECT_EQ(vosSysConfigDataGet(BSP_STACK, value.data(), 24), VOS_OK);
    return value;
}

void expectInvalidData(int32_t number) {
    const Outcome outcome = run([=] {
        uint32_t value = 7;
        EXPECT_EQ(getWord(number, value), VOS_ERROR);
        EXPECT_EQ(value, 7u);
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosSysConfigDataGet:invalid data.", "vosSysConfigDataGet:error exit."));
}

}  // namespace

TEST(Items, EachIsStoredAtItsPlaceAndNothingElseChanges) {
    for (const Item &item : kItems) {
        SCOPED_TRACE(item.name);
        putErased();
        const std::string value = pattern(item.size, item.number);
        run([&] {
            EXPECT_EQ(vosSysConfigDataSet(item.number, value.data(), item.size), VOS_OK);
            std::string back(item.size + 8, '.');
            EXPECT_EQ(vosSysConfigDataGet(item.number, back.data(), item.size + 8), VOS_OK);
            EXPECT_EQ(back, value + "........");
        });
        const Partition &partition = item.factory ? kFactory : kSystem;
        const Partition &other = item.factory ? kSystem : kFactory;
        EXPECT_EQ(bodyOf(partition), erasedBody(partition).replace(item.offset, item.size, value));
        EXPECT_EQ(bodyOf(other), erasedBody(other));
    }
}

TEST(Items, AShortLengthIsNamedAndNothingIsWritten) {
    putErased();
    for (const Item &item : kItems) {
        const std::string value = pattern(item.size, 1);
        const Outcome outcome = run([&] {
            std::string back(item.size, '.');
            EXPECT_EQ(vosSysConfigDataGet(item.number, back.data(), item.size - 1), VOS_ERROR);
            EXPECT_EQ(back, std::string(item.size, '.'));
            EXPECT_EQ(vosSysConfigDataSet(item.number, value.data(), item.size - 1), VOS_ERROR);
            EXPECT_EQ(vosSysConfigDataGet(item.number, back.data(), 0), VOS_ERROR);
        });
        const std::string text = std::string(":") + item.name + " invalid len.";
        EXPECT_THAT(outcome.messages(), ElementsAre("vosSysConfigDataGet" + text, "vosSysConfigDataGet:error exit.",
                                                    "vosSysConfigDataSet" + text, "vosSysConfigDataSet:error exit.",
                                                    "vosSysConfigDataGet" + text, "vosSysConfigDataGet:error exit."));
    }
    for (const Partition &each : kPartitions) EXPECT_EQ(bodyOf(each), erasedBody(each));
}

TEST(Items, ALengthOf0x80000000AndMoreIsTooShortForSixItemsAndEnoughForTheOthers) {
    putErased();
    for (const Item &item : kItems) {
        SCOPED_TRACE(item.name);
        const int32_t expected = item.lengthIsSigned ? VOS_ERROR : VOS_OK;
        const std::string value(item.size, '\xFF');
        run([&] {
            std::string back(item.size, '.');
            for (const uint32_t length : {0x80000000u, 0xFFFFFFFFu}) {
                EXPECT_EQ(vosSysConfigDataGet(item.number, back.data(), length), expected);
                EXPECT_EQ(vosSysConfigDataSet(item.number, value.data(), length), expected);
            }
        });
    }
}

TEST(Items, GetTracesItsStartAndSetDoesNot) {
    putErased();
    const Outcome outcome = run([] {
        vosDebugConfig(VOS_DEBUG_ERROR | VOS_DEBUG_TRACE);
        uint32_t value = 7;
        getWord(BSP_OEM_NUMBER, value);
        setWord(BSP_OEM_NUMBER, value);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosSysConfigDataGet:start.", "readBootConfigData:start.",
                                                "readBootConfigData:start.", "writeBootConfigData:start."));
}

TEST(Items, ANullValueIsRefused) {
    putErased();
    const Outcome outcome = run([] {
        EXPECT_EQ(vosSysConfigDataGet(BSP_SYS_MAC, nullptr, 6), VOS_ERROR);
        EXPECT_EQ(vosSysConfigDataSet(BSP_SYS_MAC, nullptr, 6), VOS_ERROR);
    });
    EXPECT_THAT(outcome.messages(),
                ElementsAre("vosSysConfigDataGet:parameter error.", "vosSysConfigDataSet:parameter error."));
}

TEST(Items, UnknownAndReservedNumbersAreInvalidData) {
    putErased();
    for (const int32_t number : {-1, INT32_MIN, 13, 14, 15, 23, INT32_MAX}) {
        expectInvalidData(number);
        const Outcome set = run([=] { EXPECT_EQ(setWord(number, 7), VOS_ERROR); });
        EXPECT_THAT(set.messages(),
                    ElementsAre("vosSysConfigDataSet:invalid data.", "vosSysConfigDataSet:error exit."));
    }
    for (const Partition &each : kPartitions) EXPECT_EQ(bodyOf(each), erasedBody(each));
}

TEST(Items, Item11CannotBeReadAndASetStoresOneByteAt704) {
    putErased();
    expectInvalidData(BSP_PRIVMODE_ENCRYPT);
    run([] { EXPECT_EQ(vosSysConfigDataSet(BSP_PRIVMODE_ENCRYPT, "AB", 1), VOS_OK); });
    EXPECT_EQ(bodyOf(kSystem), erasedBody(kSystem).replace(704, 1, "A"));
    const Outcome shortOne = run([] { EXPECT_EQ(vosSysConfigDataSet(BSP_PRIVMODE_ENCRYPT, "AB", 0), VOS_ERROR); });
    EXPECT_THAT(shortOne.messages(), ElementsAre("vosSysConfigDataSet:BSP_PRIVMODE_ENCRYPT invalid len.",
                                                 "vosSysConfigDataSet:error exit."));
}

TEST(Items, TheFlagsAreA64BitWordOfWhich32BitsAreExchanged) {
    putErased();
    run([] {
        EXPECT_EQ(setWord(BSP_SOFTFLAG, 0x12345678), VOS_OK);
        uint32_t value = 0;
        EXPECT_EQ(getWord(BSP_SOFTFLAG, value), VOS_OK);
        EXPECT_EQ(value, 0x12345678u);
        EXPECT_EQ(vosSysConfigDataGet(BSP_SOFTFLAG, &value, 3), VOS_ERROR);
    });
    const uint64_t flags = 0x12345678;
    EXPECT_EQ(bodyOf(kSystem), erasedBody(kSystem).replace(552, 8, reinterpret_cast<const char *>(&flags), 8));
}

TEST(Items, StackingOnAFreshPartitionReadsAsZerosWithoutAWrite) {
    putErased();
    run([] {
        EXPECT_EQ(getStack(), std::string(20, '\0') + kStackMagic);
        EXPECT_THAT(Faults::record([] { getStack(); }),
                    ElementsAre("malloc", "open", "flock", "read", "flock", "close"));
    });
    EXPECT_EQ(bodyOf(kSystem), erasedBody(kSystem));
}

TEST(Items, StackingSettingsAreStoredWithTheCallersLastWord) {
    putErased();
    const std::string settings = pattern(20, 3);
    run([&] {
        EXPECT_EQ(vosSysConfigDataSet(BSP_STACK, (settings + kStackMagic).data(), 24), VOS_OK);
        EXPECT_EQ(getStack(), settings + kStackMagic);
    });
    EXPECT_EQ(bodyOf(kSystem), erasedBody(kSystem).replace(568, 24, settings + kStackMagic));
    run([&] {
        EXPECT_EQ(vosSysConfigDataSet(BSP_STACK, (settings + "none").data(), 24), VOS_OK);
        EXPECT_EQ(bodyOf(kSystem).substr(568, 24), settings + "none");
        EXPECT_EQ(getStack(), std::string(20, '\0') + kStackMagic);
    });
}

TEST(Items, ARepairedStackIsWrittenAlongWithAnotherStackOnly) {
    putErased();
    run([] { EXPECT_EQ(setWord(BSP_ZTP, 1), VOS_OK); });
    EXPECT_EQ(bodyOf(kSystem).substr(568, 24), std::string(24, '\xFF'));
}

TEST(Items, AGetOfTheStackWithAShortLengthIsNamedWithTheLength) {
    putErased();
    const Outcome outcome = run([] {
        std::string value(23, '.');
        EXPECT_EQ(vosSysConfigDataGet(BSP_STACK, value.data(), 23), VOS_ERROR);
        EXPECT_EQ(value, std::string(23, '.'));
    });
    EXPECT_THAT(outcome.messages(), ElementsAre("vosSysConfigDataGet:BSP_STACK invalid len 23 ."));
}

TEST(Items, ASetOfTheStackTakes24BytesWhateverItsLengthSays) {
    for (const uint32_t length : {0u, 23u, 24u, 25u, 0x80000000u, 0xFFFFFFFFu}) {
        putErased();
        const std::string value = pattern(20, static_cast<int>(length & 0xFF)) + kStackMagic;
        const Outcome outcome = run([&] { EXPECT_EQ(vosSysConfigDataSet(BSP_STACK, value.data(), length), VOS_OK); });
        EXPECT_THAT(outcome.messages(), IsEmpty());
        EXPECT_EQ(bodyOf(kSystem), erasedBody(kSystem).replace(568, 24, value)) << length;
    }
}

/* The copies in memory are read from flash before the value is read. */
TEST(Items, AValueThatLiesInTheCopyInMemoryIsStoredAsItWasOnFlash) {
    putErased();
    run([] {
        EXPECT_EQ(setWord(BSP_ZTP, 5), VOS_OK);
        flashData[664] = 9;
        EXPECT_EQ(vosSysConfigDataSet(BSP_ZTP, &flashData[664], 4), VOS_OK);
        uint32_t value = 0;
        EXPECT_EQ(getWord(BSP_ZTP, value), VOS_OK);
        EXPECT_EQ(value, 5u);
    });
}

TEST(Items, ALengthFailureHasRefreshedTheCopyInMemory) {
    putErased();
    run([] {
        EXPECT_EQ(vosSysConfigDataSet(BSP_SYS_MAC, "abcdef", 5), VOS_ERROR);
        EXPECT_EQ(flashConfig[0], 0xFF);
    });
}

TEST(Items, TheSerialNumberNeeds32BytesAndGivesExactly32) {
    putErased();
    run([] {
        std::string value(100, '.');
        EXPECT_EQ(vosSysConfigDataGet(BSP_SERIAL_NUMBER, value.data(), 31), VOS_ERROR);
        EXPECT_EQ(vosSysConfigDataGet(BSP_SERIAL_NUMBER, value.data(), 100), VOS_OK);
        EXPECT_EQ(value, std::string(32, '\xFF') + std::string(68, '.'));
    });
}

TEST(Items, ClearingTheUsersErasesTheirTable) {
    putErased();
    run([] {
        const std::string users = pattern(476, 9);
        EXPECT_EQ(vosSysConfigDataSet(BSP_USER, users.data(), 476), VOS_OK);
        EXPECT_EQ(vosBspUserClearAll(), VOS_OK);
        std::string back(476, '.');
        EXPECT_EQ(vosSysConfigDataGet(BSP_USER, back.data(), 476), VOS_OK);
        EXPECT_EQ(back, std::string(476, '\xFF'));
    });
    std::filesystem::remove(kSystem.path);
    run([] { EXPECT_EQ(vosBspUserClearAll(), VOS_ERROR); });
}

TEST(Items, ACorruptedFactoryPartitionFailsEveryFactoryItemUntilTheNextStartUp) {
    putErased();
    std::string damaged = partitionOf(erasedBody(kFactory));
    damaged[1000] = 'x';
    putFile(kFactory.path, damaged);
    for (const Item &item : kItems) {
        if (!item.factory) continue;
        const Outcome outcome = run([&] {
            std::string value(item.size, '.');
            EXPECT_EQ(vosSysConfigDataGet(item.number, value.data(), item.size), VOS_ERROR);
        });
        EXPECT_THAT(outcome.messages(),
                    ElementsAre("readBootConfigData:crc error.", "vosSysConfigDataGet:readBootConfigData failed.",
                                "vosSysConfigDataGet:error exit."));
    }
    run([] {
        vosSysConfigDataInit();
        uint32_t value = 0;
        EXPECT_EQ(getWord(BSP_OEM_NUMBER, value), VOS_OK);
    });
}
