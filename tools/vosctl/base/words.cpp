/* SPDX-License-Identifier: MIT */
#include "words.h"

#include <vosDebug.h>

#include <charconv>
#include <cstdio>
#include <string_view>

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

}  // namespace vosctl
