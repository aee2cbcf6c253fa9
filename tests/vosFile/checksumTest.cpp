/* SPDX-License-Identifier: MIT */
#include <sys/mman.h>

#include <array>
#include <cstring>
#include <random>

#include "vos.h"
#include "vosFile/flash.h"

using namespace vostest;

namespace {

const std::string kKnown = "123456789";

uint32_t calculate(const std::string &bytes) { return Cal_CRC(raw(bytes), size32(bytes)); }

/* The register, computed bit by bit without a table. A step shifts the low 24 bits of the register up and adds the
 * effect of the byte on 16 bits. */
uint32_t calculateLiterally(const std::string &bytes) {
    uint32_t r = 0;
    for (const char c : bytes) {
        const uint32_t h = (r >> 8) & 0xFF;
        r <<= 8;
        uint32_t entry = ((static_cast<uint8_t>(c) ^ h) & 0xFF) << 8;
        for (int bit = 0; bit < 8; ++bit) entry = ((entry << 1) ^ ((entry & 0x8000) != 0 ? 0x1021 : 0)) & 0xFFFF;
        r ^= entry;
    }
    return r;
}

/* An independent CRC-16/XMODEM. */
uint16_t xmodem(const std::string &bytes) {
    uint16_t crc = 0;
    for (const char c : bytes) {
        crc = static_cast<uint16_t>(crc ^ (static_cast<uint8_t>(c) << 8));
        for (int bit = 0; bit < 8; ++bit) crc = static_cast<uint16_t>((crc << 1) ^ ((crc & 0x8000) != 0 ? 0x1021 : 0));
    }
    return crc;
}

}  // namespace

TEST(Checksum, KnownAnswersOfTheCrc32) {
    run([] {
        EXPECT_EQ(~vosFileCrc32(0xFFFFFFFF, raw(kKnown), 9), 0xCBF43926u);
        EXPECT_EQ(vosFileCrc32(0x12345678, raw(kKnown), 0), 0x12345678u);
        EXPECT_EQ(vosFileCrc32(0x12345678, nullptr, 5), 0x12345678u);
    });
}

TEST(Checksum, TheCrc32TableIsFilledAtLoadAndMayBeChanged) {
    run([] {
        EXPECT_EQ(vosCrctable[0], 0u);
        EXPECT_EQ(vosCrctable[1], 0x77073096u);
        EXPECT_EQ(vosCrctable[8], 0x0EDB8832u);
        EXPECT_EQ(vosCrctable[255], 0x2D02EF8Du);
        vosCrctable[uint8_t{'x'}] = 42;
        const uint8_t x = 'x';
        EXPECT_EQ(vosFileCrc32(0, &x, 1), 42u);
    });
}

TEST(Checksum, KnownAnswersOfTheUnmaskedRegister) {
    run([] {
        EXPECT_EQ(calculate(kKnown), 0x869031C3u);
        EXPECT_EQ(Cal_CRC(nullptr, 9), 0u);
        EXPECT_EQ(Cal_CRC(raw(kKnown), 0), 0u);
    });
}

TEST(Checksum, OneByteGivesItsTableEntryAndTwoShowTheFirstHighByteAboveTheRegister) {
    run([] {
        for (int i = 0; i < 256; ++i) {
            const std::string one(1, static_cast<char>(i));
            EXPECT_EQ(calculate(one), xmodem(one));
            const std::string two = one + '\x5A';
            EXPECT_EQ(calculate(two) >> 16, xmodem(one) >> 8);
        }
        EXPECT_EQ(calculate("\x01"), 0x1021u);
        EXPECT_EQ(calculate("\x02"), 0x2042u);
        EXPECT_EQ(calculate("\x03"), 0x3063u);
    });
}

TEST(Checksum, TheRegisterAgreesWithALiteralOneOverRandomBytes) {
    run([] {
        const unsigned seed = std::random_device{}();
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        for (int round = 0; round < 2000; ++round) {
            std::string bytes(random() % 300, '\0');
            for (char &c : bytes) c = static_cast<char>(random());
            ASSERT_EQ(calculate(bytes), calculateLiterally(bytes));
            ASSERT_EQ(calculate(bytes) & 0xFFFF, xmodem(bytes));
        }
    });
}

TEST(Checksum, EveryLengthAtEveryAlignmentAgreesWithALiteralRegister) {
    run([] {
        std::string bytes(100 + 8, '\0');
        for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * i * 37 + 11);
        for (std::size_t begin = 0; begin < 8; ++begin) {
            for (std::size_t length = 0; length <= 100; ++length)
                ASSERT_EQ(Cal_CRC(raw(bytes) + begin, static_cast<uint32_t>(length)),
                          calculateLiterally(bytes.substr(begin, length)))
                    << length << " bytes at " << begin;
        }
    });
}

/* Only where the code is fast: elsewhere 4 GiB take longer than a test may. Zeros do not change a register of zero, so
 * only the last bytes matter. The memory is reserved but not used. */
#if defined(__x86_64__) && !defined(__clang__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(Checksum, TheLargestLengthIsReadToItsLastByte) {
    run([] {
        constexpr std::size_t kLength = 0xFFFFFFFF;
        void *const memory =
            mmap(nullptr, kLength, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        ASSERT_NE(memory, MAP_FAILED) << strerror(errno);
        auto *const bytes = static_cast<uint8_t *>(memory);
        madvise(memory, kLength, MADV_NOHUGEPAGE);
        std::memcpy(bytes + kLength - kKnown.size(), kKnown.data(), kKnown.size());
        EXPECT_EQ(Cal_CRC(bytes, kLength), calculate(kKnown));
        EXPECT_EQ(vosFileCrc32(0, bytes, kLength), vosFileCrc32(0, raw(kKnown), size32(kKnown)));
        munmap(memory, kLength);
    });
}
#endif
