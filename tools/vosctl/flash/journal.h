/* SPDX-License-Identifier: MIT */
/* The library's journal as the tool sees it: what lies in it, and entries for what the tool itself writes. The formats
 * are described in docs/flash-formats.md. */
#ifndef VOSCTL_JOURNAL_H
#define VOSCTL_JOURNAL_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vosctl {

enum class Kept {
    save,       /* a sound entry: its save was interrupted, or is at work */
    image,      /* a record of an installation */
    unfinished, /* an entry or a record that was being written */
    torn,       /* has the name of an entry or a record, and is none */
    foreign     /* has another name; the library ignores it */
};

struct KeptFile {
    std::string name;
    Kept kept = Kept::foreign;
    std::string target; /* of a sound one */
};

/* What lies in the journal, in the order of the names. Nothing when there is no directory. Throws a Failure when it
 * cannot be read. */
std::optional<std::vector<KeptFile>> keptInJournal();

/* An image, by its length and its header. */
struct ImageMark {
    uint64_t length = 0;
    std::string header;
};
struct ImageRecord {
    ImageMark wanted;
    std::optional<ImageMark> old;
};

/* What was installed at this path last, as the journal says. Nothing without a journal or without a sound record. */
std::optional<ImageRecord> imageRecordOf(const std::string &path);

/* What was installed has been taken back. */
void removeImageRecord(const std::string &path);

/* An entry for a partition that the tool rewrites, under the exclusive lock of the partition. Without a journal nothing
 * is done. Returns what went wrong; the partition must not be touched then. */
std::string placeEntry(const std::string &path, std::string_view content, std::string_view before);

/* The partition is written and flushed. */
void removeEntry(const std::string &path);

}  // namespace vosctl

#endif
