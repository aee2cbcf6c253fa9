/* SPDX-License-Identifier: MIT */
/* Words of the command line: 32-bit numbers, the levels of the debug flag word, and what was mistyped. */
#ifndef VOSCTL_WORDS_H
#define VOSCTL_WORDS_H

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace vosctl {

/* Decimal, or hexadecimal behind 0x; nothing for any other text and for what does not fit 32 bits. */
std::optional<uint32_t> wordOf(const std::string &text);

/* "0x00000026" */
std::string hexWord(uint32_t word);

/* The levels' words combined; without any, the word that a process starts with. */
uint32_t levelsOf(const std::vector<std::string> &levels);

/* Their names. */
std::set<std::string> levelNames();

/* What is wrong with the text, empty when nothing is: for the checks of the command line. */
std::string wordMistake(const std::string &text);
std::string levelMistake(const std::string &text);

/* The one of the known words that was probably meant; empty when none is close. */
std::string nearest(std::string_view word, const std::set<std::string> &known);
/* The same as the begin of a next step: "did you mean X? ", empty when none is close. */
std::string didYouMean(std::string_view word, const std::set<std::string> &known);

}  // namespace vosctl

#endif
