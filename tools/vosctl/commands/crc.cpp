/* SPDX-License-Identifier: MIT */
/* vosctl crc: the checksums of images and partitions over any file. */
#include <vosFile.h>

#include <array>

#include "../base/words.h"
#include "../flash/store.h"
#include "../terminal/payload.h"
#include "commands.h"

namespace vosctl {

namespace {

/* The effect of a byte on the low half of the register: CRC-16, polynomial 0x1021. */
constexpr std::array<uint16_t, 256> effects() {
    std::array<uint16_t, 256> all{};
    for (uint32_t byte = 0; byte < all.size(); ++byte) {
        uint32_t effect = byte << 8;
        for (int bit = 0; bit < 8; ++bit) effect = (effect << 1) ^ ((effect & 0x8000) != 0 ? 0x1021u : 0);
        all[byte] = static_cast<uint16_t>(effect);
    }
    return all;
}
constexpr auto kEffects = effects();

/* The library computes the checksum of the partitions over bytes that are all in memory. This function continues it
 * part by part. It uses the same 32-bit register, whose upper half holds the bits that were shifted out. */
uint32_t partitionChecksum(uint32_t sum, std::string_view part) {
    for (const char byte : part) sum = (sum << 8) ^ kEffects[static_cast<unsigned char>(byte) ^ (sum >> 8 & 0xFF)];
    return sum;
}

/* The file is read in parts, because it may be larger than the memory. */
int showChecksums(Output &out, const std::string &file) {
    uint64_t bytes = 0;
    uint32_t register32 = 0xFFFFFFFF;
    uint32_t partition = 0;
    readParts(file, kLongestFile, [&](std::string_view part) {
        bytes += part.size();
        register32 = vosFileCrc32(register32, bytesOf(part), lengthOf(part));
        partition = partitionChecksum(partition, part);
    });
    const uint32_t crc32 = ~register32;
    Record record;
    record.add("file", "file", file)
        .add("bytes", "bytes", bytes)
        .add("crc32", "CRC-32 (images)", Cell{crc32, hexWord(crc32), Style::plain})
        .add("partition", "partition checksum", Cell{partition, hexWord(partition), Style::plain});
    out.report(record);
    return kDone;
}

}  // namespace

void addCrcCommand(Command app, Context &context) {
    const auto file = std::make_shared<std::string>();
    Command crc = app.command("crc", "Compute the checksums of images and partitions over a file");
    crc.argument("FILE", *file, "The file; - is standard input").required().notEmpty("FILE");
    crc.example("vosctl crc new.img");
    crc.onRun(context, [file](Output &out) { return showChecksums(out, *file); });
}

}  // namespace vosctl
