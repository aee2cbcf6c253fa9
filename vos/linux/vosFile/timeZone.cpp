/* SPDX-License-Identifier: MIT */
/* The system's time zone: a rule in "/etc/TZ", and the same rule at the end of a TZif file in "/etc/localtime". The
 * call is declared in vosSys.h. It is defined in vosFile because it writes with the whole-file operations, and vosSys
 * may not use a layer above it.
 *
 * The content before the rule does not matter for a present-day time: all its transitions are before 1952, and a reader
 * uses the rule for every later time. It only makes the file valid. */
#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <span>
#include <string_view>

#include "../base/log.h"
#include "../base/text.h"
#include "vosFile.h"
#include "vosSys.h"

namespace {

/* ---- The file up to the rule, in the terms of the TZif format. All numbers are big-endian. ---- */

constexpr std::size_t kTemplateSize = 286;

struct LocalTime {
    int32_t offset; /* seconds east of UTC */
    uint8_t daylight;
    uint8_t abbreviation; /* offset of its name in the abbreviations */
};

/* The data of one block. */
struct Block {
    std::span<const int64_t> times;
    std::span<const uint8_t> types; /* the local-time type that begins at each of the times */
    std::span<const LocalTime> localTimes;
    std::string_view abbreviations;      /* each with its NUL */
    std::span<const uint8_t> indicators; /* standard/wall, and the same once more for UT/local; one for each type */
};

/* Midnight at the end of a day in Japan: 15:00 UTC of that day. */
consteval int64_t midnightAfter(int year, unsigned month, unsigned day) {
    namespace calendar = std::chrono;
    const calendar::sys_days date = calendar::year{year} / calendar::month{month} / calendar::day{day};
    return calendar::sys_seconds{date + calendar::hours{15}}.time_since_epoch().count();
}

constexpr int64_t kTimes[] = {
    midnightAfter(1887, 12, 31), midnightAfter(1948, 5, 1),  midnightAfter(1948, 9, 11),
    midnightAfter(1949, 4, 2),   midnightAfter(1949, 9, 10), midnightAfter(1950, 5, 6),
    midnightAfter(1950, 9, 9),   midnightAfter(1951, 5, 5),  midnightAfter(1951, 9, 8),
};
static_assert(kTimes[0] == -2587712400 && kTimes[8] == -577962000);

using std::string_view_literals::operator""sv; /* texts that hold NULs */

constexpr uint8_t kTypes[] = {3, 1, 2, 1, 2, 1, 2, 1, 2};
constexpr LocalTime kLocalTimes[] = {{33539, 0, 0}, {36000, 1, 4}, {32400, 0, 8}, {32400, 0, 8}};
constexpr uint8_t kIndicators[] = {0, 0, 0, 1};
constexpr Block kVersion2 = {kTimes, kTypes, kLocalTimes, "LMT\0JDT\0JST\0"sv, kIndicators};

/* The first transition does not fit into 32 bits and is left out, and with it the type LMT. */
constexpr uint8_t kOldTypes[] = {0, 1, 0, 1, 0, 1, 0, 1};
constexpr LocalTime kOldLocalTimes[] = {{36000, 1, 0}, {32400, 0, 4}, {32400, 0, 4}};
constexpr uint8_t kOldIndicators[] = {0, 0, 1};
constexpr Block kVersion1 = {std::span{kTimes}.subspan(1), kOldTypes, kOldLocalTimes, "JDT\0JST\0"sv, kOldIndicators};

class Writer {
  public:
    consteval Writer &header(const Block &block) {
        text("TZif2");
        end_ += 15;
        const std::size_t indicators = block.indicators.size();
        const std::size_t leapSeconds = 0;
        for (const std::size_t count : {indicators, indicators, leapSeconds, block.times.size(),
                                        block.localTimes.size(), block.abbreviations.size()})
            number(static_cast<int64_t>(count), 4);
        return *this;
    }

    consteval Writer &data(const Block &block, int timeWidth) {
        for (const int64_t time : block.times) number(time, timeWidth);
        for (const uint8_t type : block.types) number(type, 1);
        for (const LocalTime &each : block.localTimes) {
            number(each.offset, 4);
            number(each.daylight, 1);
            number(each.abbreviation, 1);
        }
        text(block.abbreviations);
        for (int twice = 0; twice < 2; ++twice)
            for (const uint8_t indicator : block.indicators) number(indicator, 1);
        return *this;
    }

    consteval Writer &text(std::string_view characters) {
        for (const char c : characters) bytes_[end_++] = c;
        return *this;
    }

    [[nodiscard]] consteval std::array<char, kTemplateSize> bytes() const { return bytes_; }
    [[nodiscard]] consteval std::size_t size() const { return end_; }

  private:
    consteval void number(int64_t value, int width) {
        for (int shift = 8 * (width - 1); shift >= 0; shift -= 8) bytes_[end_++] = static_cast<char>(value >> shift);
    }

    std::array<char, kTemplateSize> bytes_ = {};
    std::size_t end_ = 0;
};

consteval Writer writeTemplate() {
    Writer file;
    return file.header(kVersion1).data(kVersion1, 4).header(kVersion2).data(kVersion2, 8).text("\n");
}

constexpr std::array<char, kTemplateSize> kTemplate = writeTemplate().bytes();
static_assert(writeTemplate().size() == kTemplateSize);
static_assert(std::string_view(&kTemplate[44 + 72], 5) == "TZif2" && kTemplate.back() == '\n');

/* ---- Writing the two files ---- */

constexpr std::size_t kLongestRule = 128;

int32_t _vosLocalTimeSet(std::string_view rule) {
    const vos::Caller me;
    std::array<char, 1024> file = {};
    char *end = std::copy(kTemplate.begin(), kTemplate.end(), file.begin());
    end = std::copy(rule.begin(), rule.end(), end);
    *end++ = '\n';
    const int32_t result = vosFileWrite("/etc/localtime", file.data(), static_cast<uint32_t>(end - file.data()));
    if (result != VOS_OK) vos::error(me, "%s:vosFileWrite failed.");
    return result;
}

}  // namespace

int32_t vosTimeZoneSet(const char *pTz) {
    const vos::Caller me;
    if (pTz == nullptr) return vos::failed(me, VOS_ERR_PARAM, "%s:parameter error.");
    const std::string_view rule{pTz, strnlen(pTz, kLongestRule + 1)};
    if (rule.size() > kLongestRule) return vos::failed(me, VOS_ERROR, "%s:timezone is too long.");
    vos::Text<kLongestRule + 2> line;
    line.append(rule).append("\n");
    const int32_t result = vosFileWrite("/etc/TZ", line.get(), static_cast<uint32_t>(line.length()));
    if (result != VOS_OK) return vos::failed(me, result, "%s:vosFileWrite failed.");
    return _vosLocalTimeSet(rule);
}
