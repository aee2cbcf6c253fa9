/* SPDX-License-Identifier: MIT */
/* Words of the command line: 32-bit numbers, the levels of the debug flag word, and suggestions for mistyped words. */
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

/* A decimal number, or a hexadecimal one after 0x. Nothing for any other text and for a number above 32 bits. */
std::optional<uint32_t> wordOf(const std::string &text);

/* A signed number: decimal, or hexadecimal after 0x. */
std::optional<int32_t> signedOf(const std::string &text);

/* "0x00000026" */
std::string hexWord(uint32_t word);

/* The flag word of some levels. It has the error level too, unless "none" or a number is among them. Without levels it
 * is the flag word that a process starts with. */
uint32_t levelsOf(const std::vector<std::string> &levels);

struct Level {
    std::string_view name;
    uint32_t word;
    std::string_view meaning;
};
/* The flag word of all levels that have a name. */
std::span<const Level> levels();

/* Their names. */
std::set<std::string> levelNames();

/* For the checks of the command line: what is wrong with the text; empty when it is right. */
std::string wordMistake(const std::string &text);
std::string signedMistake(const std::string &text);
std::string nameMistake(const std::string &text);
std::string levelMistake(const std::string &text);

/* A word as it can be typed in a shell: quoted where that is necessary. */
std::string shellWord(std::string_view word);

/* A word from outside for a message. Only the beginning of a very long word is shown. */
std::string shortened(std::string_view word);

/* The known word that was probably meant; empty when none is similar. */
std::string nearest(std::string_view word, const std::set<std::string> &known);
/* The same as the beginning of a next step: "did you mean X? "; empty when none is similar. */
std::string didYouMean(std::string_view word, const std::set<std::string> &known);

}  // namespace vosctl

#endif
