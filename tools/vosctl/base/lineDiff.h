/* SPDX-License-Identifier: MIT */
/* Compares two texts line by line. */
#ifndef VOSCTL_LINE_DIFF_H
#define VOSCTL_LINE_DIFF_H

#include <cstddef>
#include <string_view>
#include <vector>

namespace vosctl {

struct LineChange {
    bool added = false;         /* in the second text only; else in the first only */
    std::size_t firstLine = 0;  /* counted from 1: its place in the first text, or where it is missing */
    std::size_t secondLine = 0; /* the same for the second text */
    std::string_view text;      /* without its line end; valid as long as the texts */
};

/* Empty when the texts are equal. Lines that each text has exactly once are matched first, then the lines between them.
 * The result is right for every input, and short for texts that people write. A missing line end at the end of a text
 * counts as a difference of its last line. */
std::vector<LineChange> changedLines(std::string_view first, std::string_view second);

}  // namespace vosctl

#endif
