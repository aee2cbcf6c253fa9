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

constexpr std::string_view kNone = "none";
constexpr Level kLevels[] = {
    {kNone, 0, "nothing at all, not even failures"},
    {"error", VOS_DEBUG_ERROR, "failures; printed beside every other level"},
    {"trace", VOS_DEBUG_TRACE, "begin and end of operations, internal messages"},
    {"event", VOS_DEBUG_EVENT, "a line per packet, link or MAC-address event"},
    {"no-timeouts", VOS_DEBUG_NO_TIMEOUTS, "no level: new message sockets wait without a time-out"}};

std::optional<uint32_t> levelOf(const std::string &text) {
    for (const Level &level : kLevels)
        if (level.name == text) return level.word;
    return wordOf(text);
}

constexpr std::size_t kLongestGuess = 64; /* a longer word is not a typing mistake, and comparing it takes long */

/* The number of edits that turn one word into the other. An edit adds, removes or changes a letter, or exchanges two
 * neighbours. */
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

std::optional<int32_t> signedOf(const std::string &text) {
    const bool negative = text.starts_with('-');
    const auto word = wordOf(negative ? text.substr(1) : text);
    const uint32_t most = negative ? 0x80000000 : 0x7FFFFFFF;
    if (!word || *word > most) return {};
    return static_cast<int32_t>(negative ? 0 - *word : *word);
}

std::string hexWord(uint32_t word) {
    char text[11];
    snprintf(text, sizeof text, "0x%08X", word);
    return text;
}

uint32_t levelsOf(const std::vector<std::string> &levels) {
    uint32_t word = 0;
    bool exact = false;
    for (const std::string &level : levels) {
        word |= levelOf(level).value_or(0);
        exact = exact || level == kNone || wordOf(level);
    }
    return exact ? word : word | VOS_DEBUG_ERROR;
}

std::span<const Level> levels() { return kLevels; }

std::set<std::string> levelNames() {
    std::set<std::string> names;
    for (const Level &level : kLevels) names.emplace(level.name);
    return names;
}

std::string wordMistake(const std::string &text) {
    return wordOf(text) ? "" : "\"" + shortened(text) + "\" is not a 32-bit word, decimal or hexadecimal with 0x";
}

std::string signedMistake(const std::string &text) {
    return signedOf(text) ? "" : "\"" + shortened(text) + "\" is not a signed number of 32 bits";
}

std::string nameMistake(const std::string &text) {
    return text.empty() || text.back() == '/' ? "the name is empty" : "";
}

std::string levelMistake(const std::string &text) {
    return levelOf(text)
               ? ""
               : "\"" + shortened(text) + "\" is neither error, trace, event, no-timeouts, none nor a 32-bit word";
}

std::string shellWord(std::string_view word) {
    constexpr std::string_view kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./,:@%+";
    if (!word.empty() && word.find_first_not_of(kPlain) == std::string_view::npos) return std::string(word);
    const bool printing = std::all_of(word.begin(), word.end(), [](char c) { return c >= ' ' && c <= '~'; });
    std::string quoted = printing ? "'" : "$'";
    for (const char c : word) {
        char escape[5];
        snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
        if (printing)
            quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
        else
            quoted += c < ' ' || c > '~' || c == '\'' || c == '\\' ? std::string(escape) : std::string(1, c);
    }
    return quoted + "'";
}

std::string shortened(std::string_view word) {
    constexpr std::size_t kLongest = 128;
    constexpr std::size_t kShown = 48;
    if (word.size() <= kLongest) return std::string(word);
    return std::string(word.substr(0, kShown)) + "... (" + std::to_string(word.size()) + " characters)";
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
