/* SPDX-License-Identifier: MIT */
/* The CRC-32 is compared with zlib's. */
#include <zlib.h>

#include <random>

#include "vos.h"
#include "vosFile/flash.h"

using namespace vostest;

TEST(Checksum, TheCrc32AgreesWithZlibOverRandomBytesInAnyPieces) {
    run([] {
        const unsigned seed = std::random_device{}();
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        for (int round = 0; round < 2000; ++round) {
            std::string bytes(random() % 5000, '\0');
            for (char &c : bytes) c = static_cast<char>(random());
            const auto cut = static_cast<uint32_t>(random() % (bytes.size() + 1));
            const uint32_t head = vosFileCrc32(0xFFFFFFFF, raw(bytes), cut);
            const uint32_t whole = ~vosFileCrc32(head, raw(bytes) + cut, size32(bytes) - cut);
            ASSERT_EQ(whole, crc32(0, raw(bytes), size32(bytes)));
        }
    });
}

TEST(Checksum, TheCrc32TableIsZlibs) {
    run([] {
        for (std::size_t i = 0; i < 256; ++i) EXPECT_EQ(vosCrctable[i], get_crc_table()[i]);
    });
}
