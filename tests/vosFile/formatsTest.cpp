/* SPDX-License-Identifier: MIT */
/* The examples of docs/flash-formats.md, byte by byte. */
#include "vosFile/images.h"
#include "vosSysConfig/partitions.h"

using namespace vostest;

namespace {

/* Bytes from their hexadecimal text. */
std::string bytes(const std::string &hex) {
    std::string result;
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        while (hex[i] == ' ') ++i;
        result += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    }
    return result;
}

std::string repeated(std::size_t count, const std::string &hex) { return std::string(count, bytes(hex)[0]); }

const std::string kApplicationExample = bytes(
    "00 00 00 02 00 00 00 01 00 00 00 02 36 10 a6 86"
    " 68 65 6c 6c 6f");

const std::string kBootExample = bytes(
    "68 65 6c 6c 6f"
    " 00 00 00 01 00 00 00 01 00 00 00 02 36 10 a6 86");

const std::string kPackageExample = bytes(
    "00 00 00 03 00 00 00 01 00 00 00 02 bb 90 8b c7"
    " 53 35 53 35 00 00 00 84 00 00 00 03 00 00 00 00"
    " 53 35 53 35 00 00 00 00 00 00 00 01 00 00 00 09 00 00 00 00 00 00 01 ed 00 00 00 00 00 00 00 00"
    " 2f 61 70 70 2f 6f 65 6d 00"
    " 53 35 53 35 00 00 00 00 00 00 00 00 00 00 00 0b 00 00 00 02 00 00 01 a4 00 00 00 00 00 00 00 00"
    " 2f 61 70 70 2f 6f 65 6d 2f 61 00 68 69"
    " 53 35 53 35 00 00 00 00 00 00 00 02 00 00 00 00 00 00 00 0e 00 00 01 a4 00 00 00 00 00 00 00 00"
    " 53 35 53 35 00 00 00 01 00 00 00 02 53 4e");

const std::string kFactoryExample = bytes("f8 04 00 00 16 98 86 26 b2 d8 02 db 00 00 00 00 00 00 00 00") +
                                    repeated(108, "00") +
                                    bytes("02 00 00 00 00 01 02 00 00 00 00 02 01 00 00 00 53 4e 2d 30 30 30 31") +
                                    repeated(25, "00") + repeated(1224, "ff");

const std::string kSystemExample =
    bytes("58 03 00 00 16 98 86 26 16 d1 24 38 00 00 00 00 00 00 00 00") + repeated(44, "ff") + repeated(64, "00") +
    bytes("ff ff ff ff c0 00 02 01 ff ff ff ff ff ff ff ff 00 c2 01 00") + repeated(532, "ff") +
    bytes("78 56 34 12 00 00 00 00 ff ff ff ff ff ff ff ff") +
    bytes("00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10 11 12 13 a5 5a a5 5a") + repeated(264, "ff");

}  // namespace

TEST(FlashFormats, AnApplicationImage) {
    putFile(kApplication, kApplicationExample);
    run([] {
        EXPECT_EQ(check(2, kApplicationExample), VOS_OK);
        EXPECT_EQ(installApplication(kApplicationExample), VOS_OK);
    });
}

TEST(FlashFormats, ABootLoaderImage) {
    putFile(kApplication, kApplicationExample);
    run([] { EXPECT_EQ(check(1, kBootExample), VOS_OK); });
}

TEST(FlashFormats, AFilePackage) {
    putFile(kApplication, kApplicationExample);
    putErased();
    ASSERT_EQ(kPackageExample.size(), 164u);
    run([] {
        umask(0);
        EXPECT_EQ(installApplication(kPackageExample), VOS_OK);
        std::string block(1024, '.');
        EXPECT_EQ(vosSysConfigDataGet(BSP_OEM_INFO, block.data(), 1024), VOS_OK);
        EXPECT_EQ(block.substr(144, 4), std::string("SN\0\xFF", 4));
    });
    EXPECT_EQ(modeOf("/app/oem"), 0755u);
    EXPECT_EQ(modeOf("/app/oem/a"), 0644u);
    EXPECT_EQ(fileContent("/app/oem/a"), "hi");
}

TEST(FlashFormats, AFactoryPartition) {
    ASSERT_EQ(kFactoryExample.size(), 1400u);
    putFile("/app/factory", kFactoryExample);
    run([] {
        std::string mac(6, '.');
        EXPECT_EQ(vosSysConfigDataGet(BSP_SYS_MAC, mac.data(), 6), VOS_OK);
        EXPECT_EQ(mac, bytes("020000000001"));
        uint32_t number = 0;
        EXPECT_EQ(getWord(BSP_OEM_NUMBER, number), VOS_OK);
        EXPECT_EQ(number, 1u);
        std::string serial(33, '.');
        EXPECT_EQ(vosProdSerialNoRead(serial.data(), 33), VOS_OK);
        EXPECT_STREQ(serial.c_str(), "SN-0001");
    });
}

TEST(FlashFormats, ASystemPartition) {
    ASSERT_EQ(kSystemExample.size(), 984u);
    putFile("/flash/sysdata", kSystemExample);
    run([] {
        uint32_t value = 0;
        EXPECT_EQ(getWord(BSP_BANDRATE, value), VOS_OK);
        EXPECT_EQ(value, 115200u);
        EXPECT_EQ(getWord(BSP_SOFTFLAG, value), VOS_OK);
        EXPECT_EQ(value, 0x12345678u);
        std::string address(4, '.');
        EXPECT_EQ(vosSysConfigDataGet(BSP_IP_ADDRESS, address.data(), 4), VOS_OK);
        EXPECT_EQ(address, bytes("c0000201"));
        std::string stack(24, '.');
        EXPECT_EQ(vosSysConfigDataGet(BSP_STACK, stack.data(), 24), VOS_OK);
        EXPECT_EQ(stack, bytes("000102030405060708090a0b0c0d0e0f10111213a55aa55a"));
    });
}

TEST(FlashFormats, AConfigurationAndASyslogAreTheirBytes) {
    const std::string content = bytes("68 6f 73 74 00 ff 0a");
    putFile("/flash/zebcfg", content);
    putFile("/flash/syslog", content);
    run([&] {
        char *buffer = nullptr;
        uint32_t length = 0;
        ASSERT_EQ(vosFileCfgRead(&buffer, &length), VOS_OK);
        EXPECT_EQ(std::string(buffer, length), content);
        vosFileCfgFree(buffer);
        std::string log(16, '.');
        EXPECT_EQ(vosFileSyslogRead(log.data(), 16), 7);
        EXPECT_EQ(log.substr(0, 7), content);
    });
}

TEST(FlashFormats, AJournalEntryCompletesTheConfiguration) {
    const std::string example = bytes(
        "4a 52 4e 4c 00 00 00 01 00 00 00 00 00 00 00 0e 00 00 00 02 00 00 00 00 00 00 00 00 6a 8c 50 e2"
        " 2f 66 6c 61 73 68 2f 7a 65 62 63 66 67 00 68 69");
    std::filesystem::create_directory("/flash/journal");
    putFile("/flash/journal/b110631700e4cc58.save", example);
    putFile("/flash/zebcfg", "");
    run([] {
        szVosJournalDir = "/flash/journal";
        std::string buffer(8, '.');
        EXPECT_EQ(vosFileRead("/flash/zebcfg", buffer.data(), 8), 2);
        EXPECT_EQ(buffer, "hi......");
    });
    EXPECT_EQ(fileContent("/flash/zebcfg"), "hi");
    EXPECT_FALSE(present("/flash/journal/b110631700e4cc58.save"));
}
