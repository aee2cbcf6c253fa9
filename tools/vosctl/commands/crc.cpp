/* SPDX-License-Identifier: MIT */
/* vosctl crc: the checksums of images and partitions over any file. */
#include <vosFile.h>

#include "../base/words.h"
#include "../flash/store.h"
#include "commands.h"

namespace vosctl {

namespace {

int showChecksums(Output &out, const std::string &file) {
    const std::string bytes = loadFile(file);
    const uint32_t crc32 = crc32Of(bytes);
    const uint32_t partition = Cal_CRC(bytesOf(bytes), lengthOf(bytes));
    Record record;
    record.add("file", "file", file)
        .add("bytes", "bytes", bytes.size())
        .add("crc32", "CRC-32 (images)", Cell{crc32, hexWord(crc32), Style::plain})
        .add("partition", "partition checksum", Cell{partition, hexWord(partition), Style::plain});
    out.report(record);
    return kDone;
}

}  // namespace

void addCrcCommand(CLI::App &app, Context &context) {
    const auto file = std::make_shared<std::string>();
    CLI::App *const crc = app.add_subcommand("crc", "Compute the checksums of images and partitions over a file");
    crc->add_option("FILE", *file, "The file; - is standard input")->required();
    onRun(crc, context, [file](Output &out) { return showChecksums(out, *file); });
}

}  // namespace vosctl
