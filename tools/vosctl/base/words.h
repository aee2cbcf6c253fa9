/* SPDX-License-Identifier: MIT */
/* Words of the command line: 32-bit numbers, the levels of the debug flag word, and what was mistyped. */
#ifndef VOSCTL_WORDS_H
#define VOSCTL_WORDS_H

#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vosctl {

/* Decimal, or hexadecimal behind 0x; nothing for any other text and for what does not fit 32 bits. */
std::optional<uint32_t> wordOf(const std::string &text);

/* A signed number, decimal, or hexadecimal behind 0x. */
std::optional<int32_t> signedOf(const std::string &text);

/* "0x00000026" */
std::string hexWord(uint32_t word);

/* The levels' words combined, with errors unless "none" or a number is among them; without any, the word that a process
 * starts with. */
uint32_t levelsOf(const std::vector<std::string> &levels);

struct Level {
    std::string_view name;
    uint32_t word;
    std::string_view meaning;
};
/* All that have a name. */
std::span<const Level> levels();

/* Their names. */
std::set<std::string> levelNames();

/* What is wrong with the text, empty when nothing is: for the checks of the command line. */
std::string wordMistake(const std::string &text);
std::string levelMistake(const std::string &text);

/* A word as a shell takes it for itself, quoted where it needs that. */
std::string shellWord(std::string_view word);

/* A word from outside as a message names it: its begin, when it is very long. */
std::string shortened(std::string_view word);

/* The one of the known words that was probably meant; empty when none is close. */
std::string nearest(std::string_view word, const std::set<std::string> &known);
/* The same as the begin of a next step: "did you mean X? ", empty when none is close. */
std::string didYouMean(std::string_view word, const std::set<std::string> &known);

}  // namespace vosctl

#endif
