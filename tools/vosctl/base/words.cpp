/* SPDX-License-Identifier: MIT */
#include "words.h"

#include <vosDebug.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <limits>
#include <utility>

namespace vosctl {

namespace {

struct Level {
    std::string_view name;
    uint32_t word;
};
constexpr Level kLevels[] = {{"none", 0},
                             {"error", VOS_DEBUG_ERROR},
                             {"trace", VOS_DEBUG_TRACE},
                             {"event", VOS_DEBUG_EVENT},
                             {"no-timeouts", VOS_DEBUG_NO_TIMEOUTS}};

std::optional<uint32_t> levelOf(const std::string &text) {
    for (const Level &level : kLevels)
        if (level.name == text) return level.word;
    return wordOf(text);
}

constexpr std::size_t kLongestGuess = 64; /* longer words are no slips of the finger, and would take long to compare */

/* Edits that turn one word into the other: a letter more, less or other, or two neighbours exchanged. */
std::size_t editsBetween(std::string_view one, std::string_view other) {
    std::vector<std::size_t> before(other.size() + 1);
    std::vector<std::size_t> last(other.size() + 1);
    for (std::size_t column = 0; column <= other.size(); ++column) last[column] = column;
    for (std::size_t row = 1; row <= one.size(); ++row) {
        std::vector<std::size_t> now(other.size() + 1, row);
        for (std::size_t column = 1; column <= other.size(); ++column) {
            const bool same = one[row - 1] == other[column - 1];
            now[column] = std::min({last[column] + 1, now[column - 1] + 1, last[column - 1] + (same ? 0 : 1)});
            if (row > 1 && column > 1 && one[row - 1] == other[column - 2] && one[row - 2] == other[column - 1])
                now[column] = std::min(now[column], before[column - 2] + 1);
        }
        before = std::exchange(last, std::move(now));
    }
    return last[other.size()];
}

}  // namespace

std::optional<uint32_t> wordOf(const std::string &text) {
    std::string_view digits = text;
    int base = 10;
    if (digits.starts_with("0x") || digits.starts_with("0X")) {
        digits.remove_prefix(2);
        base = 16;
    }
    uint32_t word = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), word, base);
    if (error != std::errc{} || end != digits.data() + digits.size()) return {};
    return word;
}

std::string hexWord(uint32_t word) {
    char text[11];
    snprintf(text, sizeof text, "0x%08X", word);
    return text;
}

uint32_t levelsOf(const std::vector<std::string> &levels) {
    if (levels.empty()) return VOS_DEBUG_ERROR;
    uint32_t word = 0;
    for (const std::string &level : levels) word |= levelOf(level).value_or(0);
    return word;
}

std::set<std::string> levelNames() {
    std::set<std::string> names;
    for (const Level &level : kLevels) names.emplace(level.name);
    return names;
}

std::string wordMistake(const std::string &text) {
    return wordOf(text) ? "" : "\"" + text + "\" is not a 32-bit word, decimal or hexadecimal with 0x";
}

std::string levelMistake(const std::string &text) {
    return levelOf(text) ? "" : "\"" + text + "\" is neither error, trace, event, no-timeouts, none nor a 32-bit word";
}

std::string nearest(std::string_view word, const std::set<std::string> &known) {
    std::string best;
    std::size_t fewest = std::numeric_limits<std::size_t>::max();
    if (word.empty() || word.size() > kLongestGuess) return best;
    for (const std::string &each : known) {
        if (each.size() > kLongestGuess) continue;
        const std::size_t edits = editsBetween(word, each);
        if (edits >= fewest) continue;
        fewest = edits;
        best = each;
    }
    return fewest <= (word.size() < 4 ? 1U : 2U) ? best : std::string();
}

std::string didYouMean(std::string_view word, const std::set<std::string> &known) {
    const std::string meant = nearest(word, known);
    return meant.empty() ? meant : "did you mean " + meant + "? ";
}

}  // namespace vosctl
