/* SPDX-License-Identifier: MIT */
#include "lineDiff.h"

#include <algorithm>
#include <map>
#include <utility>

namespace vosctl {

namespace {

using Lines = std::vector<std::string_view>; /* with their line ends */

Lines linesOf(std::string_view text) {
    Lines lines;
    while (!text.empty()) {
        const std::size_t length = std::min(text.find('\n'), text.size() - 1) + 1;
        lines.push_back(text.substr(0, length));
        text.remove_prefix(length);
    }
    return lines;
}

struct Range {
    std::size_t begin;
    std::size_t end;
    [[nodiscard]] bool empty() const { return begin == end; }
};

using Match = std::pair<std::size_t, std::size_t>; /* equal lines: index in the first text, and in the second */

class Comparison {
  public:
    Comparison(Lines first, Lines second) : first_(std::move(first)), second_(std::move(second)) {}

    std::vector<LineChange> changes() {
        compare({0, first_.size()}, {0, second_.size()});
        return std::move(changes_);
    }

  private:
    void compare(Range a, Range b) {
        for (; !a.empty() && !b.empty() && first_[a.begin] == second_[b.begin]; ++a.begin) ++b.begin;
        for (; !a.empty() && !b.empty() && first_[a.end - 1] == second_[b.end - 1]; --a.end) --b.end;
        const std::vector<Match> matched = a.empty() || b.empty() ? std::vector<Match>() : inOrder(uniqueLines(a, b));
        if (matched.empty()) return report(a, b);
        for (const auto &[left, right] : matched) {
            compare({a.begin, left}, {b.begin, right});
            a.begin = left + 1;
            b.begin = right + 1;
        }
        compare(a, b);
    }

    /* Lines that each range has exactly once, in the order of the first range. */
    [[nodiscard]] std::vector<Match> uniqueLines(Range a, Range b) const {
        struct Places {
            std::size_t inFirst = 0, inSecond = 0, first = 0, second = 0;
        };
        std::map<std::string_view, Places> places;
        for (std::size_t at = a.begin; at < a.end; ++at) {
            Places &found = places[first_[at]];
            ++found.inFirst;
            found.first = at;
        }
        for (std::size_t at = b.begin; at < b.end; ++at) {
            Places &found = places[second_[at]];
            ++found.inSecond;
            found.second = at;
        }
        std::vector<Match> unique;
        for (const auto &[line, found] : places)
            if (found.inFirst == 1 && found.inSecond == 1) unique.emplace_back(found.first, found.second);
        std::sort(unique.begin(), unique.end());
        return unique;
    }

    /* The largest set of pairs that has the same order in both texts. */
    static std::vector<Match> inOrder(const std::vector<Match> &pairs) {
        std::vector<std::size_t> tails; /* for each length: the last pair of the chain that ends earliest */
        std::vector<std::size_t> before(pairs.size(), pairs.size());
        for (std::size_t at = 0; at < pairs.size(); ++at) {
            const auto place =
                std::lower_bound(tails.begin(), tails.end(), pairs[at].second,
                                 [&](std::size_t tail, std::size_t line) { return pairs[tail].second < line; });
            if (place != tails.begin()) before[at] = *(place - 1);
            if (place == tails.end())
                tails.push_back(at);
            else
                *place = at;
        }
        std::vector<Match> chain;
        for (std::size_t at = tails.empty() ? pairs.size() : tails.back(); at < pairs.size(); at = before[at])
            chain.push_back(pairs[at]);
        std::reverse(chain.begin(), chain.end());
        return chain;
    }

    void report(Range a, Range b) {
        for (std::size_t at = a.begin; at < a.end; ++at) add(false, at, b.begin, first_[at]);
        for (std::size_t at = b.begin; at < b.end; ++at) add(true, a.end, at, second_[at]);
    }

    void add(bool added, std::size_t first, std::size_t second, std::string_view line) {
        if (line.ends_with('\n')) line.remove_suffix(1);
        changes_.push_back({added, first + 1, second + 1, line});
    }

    Lines first_;
    Lines second_;
    std::vector<LineChange> changes_;
};

}  // namespace

std::vector<LineChange> changedLines(std::string_view first, std::string_view second) {
    return Comparison{linesOf(first), linesOf(second)}.changes();
}

}  // namespace vosctl
