/* SPDX-License-Identifier: MIT */
/* Every implementation of the CRC-32 returns the value of the definition, which uses the table for one byte after the
 * other. */
#include "base/crc32.h"

#include <sys/mman.h>
#include <unistd.h>

#include <random>

#include "vos.h"
#include "vosFile/flash.h"

using namespace vostest;

namespace {

/* Two of the larger blocks, a few of the smaller ones, some words and bytes. */
constexpr std::size_t kMost = 60000;

uint32_t literally(const uint32_t *table, uint32_t crc, const uint8_t *bytes, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) crc = table[(crc ^ bytes[i]) & 0xFF] ^ (crc >> 8);
    return crc;
}

/* The standard table, bit by bit. */
std::array<uint32_t, 256> standard() {
    std::array<uint32_t, 256> table{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t entry = i;
        for (int bit = 0; bit < 8; ++bit) entry = (entry & 1) != 0 ? (entry >> 1) ^ 0xEDB88320 : entry >> 1;
        table[i] = entry;
    }
    return table;
}

/* Random bytes, pieces of them and registers to start with; the seed of a failure is printed. */
struct Random {
    explicit Random(std::size_t size = kMost) : bytes(size) {
        for (uint8_t &byte : bytes) byte = static_cast<uint8_t>(engine());
    }
    uint32_t below(std::size_t limit) { return static_cast<uint32_t>(engine() % limit); }
    uint32_t word() { return static_cast<uint32_t>(engine()); }
    /* Short pieces as often as long ones. */
    std::span<const uint8_t> piece() {
        const std::size_t limit = std::array<std::size_t, 4>{100, 300, 5000, bytes.size()}[below(4)];
        const uint32_t begin = below(64);
        return std::span<const uint8_t>(bytes).subspan(begin, below(limit - begin + 1));
    }

    const unsigned seed = std::random_device{}();
    std::mt19937 engine{seed};
    std::vector<uint8_t> bytes;
    const testing::ScopedTrace trace{__FILE__, __LINE__, "seed " + std::to_string(seed)};
};

uint32_t ofLibrary(uint32_t crc, std::span<const uint8_t> bytes) {
    return vosFileCrc32(crc, bytes.data(), static_cast<uint32_t>(bytes.size()));
}

void expectLiteralValues(Random &random, int rounds) {
    for (int round = 0; round < rounds; ++round) {
        const std::span<const uint8_t> bytes = random.piece();
        const uint32_t crc = random.word();
        ASSERT_EQ(ofLibrary(crc, bytes), literally(vosCrctable, crc, bytes.data(), bytes.size()))
            << bytes.size() << " bytes at " << bytes.data() - random.bytes.data();
    }
}

/* Calls the action for each form of the library, and for the one that the library chooses. */
template <typename Form>
void expectStandardValues(Form form) {
    Random random;
    const auto table = standard();
    for (int round = 0; round < 300; ++round) {
        const std::span<const uint8_t> bytes = random.piece();
        const uint32_t crc = random.word();
        ASSERT_EQ(form(crc, bytes), literally(table.data(), crc, bytes.data(), bytes.size())) << bytes.size();
    }
}

}  // namespace

TEST(Crc32, EveryLengthAtEveryAlignmentHasTheLiteralValue) {
    run([] {
        Random random(700 + 16);
        for (std::size_t begin = 0; begin < 16; ++begin) {
            const uint8_t *bytes = random.bytes.data() + begin;
            uint32_t literal = 0xFFFFFFFF;
            for (uint32_t length = 0; length <= 700; ++length) {
                ASSERT_EQ(vosFileCrc32(0xFFFFFFFF, bytes, length), literal) << length << " bytes at " << begin;
                literal = literally(vosCrctable, literal, bytes + length, length < 700 ? 1 : 0);
            }
        }
    });
}

TEST(Crc32, RandomLengthsAlignmentsAndRegistersHaveTheLiteralValue) {
    run([] {
        Random random;
        expectLiteralValues(random, 500);
    });
}

TEST(Crc32, AnySplitGivesTheValueOfTheWhole) {
    run([] {
        Random random;
        for (int round = 0; round < 200; ++round) {
            const std::span<const uint8_t> bytes = random.piece();
            uint32_t crc = random.word();
            const uint32_t literal = literally(vosCrctable, crc, bytes.data(), bytes.size());
            for (std::span<const uint8_t> rest = bytes; !rest.empty();) {
                const std::size_t size = 1 + random.below(rest.size());
                crc = ofLibrary(crc, rest.first(size));
                rest = rest.subspan(size);
            }
            ASSERT_EQ(crc, literal) << bytes.size();
        }
    });
}

TEST(Crc32, BytesUpToTheEndOfReadableMemoryAreEnough) {
    run([] {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        auto *memory = static_cast<uint8_t *>(aligned_alloc(page, 3 * page));
        memset(memory, 0x5A, 3 * page);
        ASSERT_EQ(mprotect(memory, page, PROT_NONE), 0);
        ASSERT_EQ(mprotect(memory + 2 * page, page, PROT_NONE), 0);
        for (uint32_t length = 0; length <= page; ++length) {
            const uint32_t atStart = vosFileCrc32(1, memory + page, length);
            ASSERT_EQ(vosFileCrc32(1, memory + 2 * page - length, length), atStart) << length;
        }
        ASSERT_EQ(mprotect(memory, 3 * page, PROT_READ | PROT_WRITE), 0);
        free(memory);
    });
}

TEST(Crc32, OneChangedEntryChangesTheValueAsByTheDefinition) {
    for (int round = 0; round < 8; ++round) {
        run([] {
            Random random;
            vosCrctable[random.below(256)] ^= 1U << random.below(32);
            expectLiteralValues(random, 40);
        });
    }
}

TEST(Crc32, ATableOfAnyContentIsUsed) {
    run([] {
        Random random;
        for (uint32_t &entry : vosCrctable) entry = random.word();
        expectLiteralValues(random, 200);
    });
}

TEST(Crc32, AChangeBetweenTwoPiecesAppliesFromTheSecondPiece) {
    run([] {
        Random random;
        const uint8_t *bytes = random.bytes.data();
        const uint32_t first = vosFileCrc32(0xFFFFFFFF, bytes, 30000);
        vosCrctable[255] = 0;
        const uint32_t second = vosFileCrc32(first, bytes + 30000, 30000);
        EXPECT_EQ(second, literally(vosCrctable, first, bytes + 30000, 30000));
        EXPECT_EQ(first, literally(standard().data(), 0xFFFFFFFF, bytes, 30000));
        EXPECT_NE(second, literally(standard().data(), first, bytes + 30000, 30000));
    });
}

TEST(Crc32, ATableThatIsRestoredIsTheStandardOneAgain) {
    run([] {
        Random random;
        vosCrctable[7] += 1;
        expectLiteralValues(random, 20);
        vosCrctable[7] -= 1;
        EXPECT_EQ(vosFileCrc32(9, random.bytes.data(), kMost),
                  literally(standard().data(), 9, random.bytes.data(), kMost));
    });
}

TEST(Crc32, EachFormAloneHasTheStandardTablesValue) {
    using namespace vos::crc32;
    expectStandardValues([](uint32_t crc, Bytes bytes) { return byByte(kSlices[0], crc, bytes); });
    expectStandardValues([](uint32_t crc, Bytes bytes) { return byWord(Slicing{}, crc, bytes); });
    expectStandardValues([](uint32_t crc, Bytes bytes) { return byBlock(Slicing{}, crc, bytes); });
}

TEST(Crc32, MovingARegisterUpEqualsThatManyZeroBytes) {
    using namespace vos::crc32;
    const std::array<uint8_t, 600> zeros{};
    for (std::size_t count = 0; count < zeros.size(); count += 13) {
        const uint32_t literal = literally(standard().data(), 0x12345678, zeros.data(), count);
        EXPECT_EQ(product(0x12345678, power(8 * count)), literal) << count;
        EXPECT_EQ(product(power(8 * count), 0x12345678), literal) << count;
    }
}

#if defined(__aarch64__)

TEST(Crc32, WithoutTheProcessorsInstructionsTheValueIsTheSame) {
    run([] {
        Random random;
        for (uint32_t round = 0; round < 100; ++round) {
            const std::span<const uint8_t> bytes =
                std::span(random.bytes).subspan(random.below(64), 64 + random.below(kMost - 128));
            Faults::arm({.call = "getauxval"});
            const uint32_t crc = ofLibrary(round, bytes);
            ASSERT_TRUE(Faults::disarm());
            ASSERT_EQ(crc, literally(vosCrctable, round, bytes.data(), bytes.size()));
        }
    });
}

#elif defined(__x86_64__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

/* libvos asks the processor itself, without a call of the C library that could be replaced. So the program runs under
 * an emulator whose processor does not have the instructions. */
TEST(Crc32, WithoutTheProcessorsInstructionsTheValueIsTheSame) {
    if (access("/usr/bin/qemu-x86_64", X_OK) != 0) GTEST_SKIP() << "qemu-x86_64 is not installed";
    run([] {
        execl("/usr/bin/qemu-x86_64", "qemu-x86_64", "-cpu", "qemu64", (testPrograms() + "/oldProcessor").c_str(),
              nullptr);
        FAIL() << "the emulator did not start";
    });
}

#endif
