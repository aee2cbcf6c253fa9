/* SPDX-License-Identifier: MIT */
/* 32-bit words on the command line, and the levels of the debug flag word. */
#ifndef VOSCTL_WORDS_H
#define VOSCTL_WORDS_H

#include <cstdint>
#include <optional>
#include <set>
#include <string>
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

}  // namespace vosctl

#endif
