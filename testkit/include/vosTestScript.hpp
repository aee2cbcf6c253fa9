/* SPDX-License-Identifier: MIT */
/**
 * @file vosTestScript.hpp
 * What a played process expects and answers. A test builds it step by step with vos::test::Peer, or it is read from a
 * text, which "vosctl listen --script FILE" takes, too:
 *
 *     # the process "server", as its client knows it
 *     expect "work"                # this text; any, prefix "w" and hex 776f726b are other ways
 *         wait 50ms
 *         answer 1 "hello"         # the code, and the payload: a text, hex 00ff, echo, or size 64568
 *     expect any high times 2      # only on the high-priority socket, and twice
 *         answer -3
 *     expect prefix "status" repeatedly   # any number of times, also never
 *         answer 0 echo
 *     expect "lost"                # nothing below it: it is not answered
 *     expect "short"
 *         answer 0 "ab" announce 100   # the header's length word lies
 *     expect "broken"
 *         raw 0800                 # these bytes are sent as they are, without a header
 *     expect "stop"
 *         die                      # the sockets are closed, the paths stay, as when a process is killed
 *
 * Header only; C++17; it uses exceptions. None of these classes calls libvos, so no rule of vos-faults strikes them.
 */
#ifndef VOS_TEST_SCRIPT_HPP
#define VOS_TEST_SCRIPT_HPP

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace vos::test {

/** A script that cannot be read: "FILE:LINE: what is wrong". */
struct ScriptError : std::runtime_error {
    using runtime_error::runtime_error;
};

/** Which request is expected. */
struct Match {
    enum class Kind { any, text, prefix };
    enum class Lane { either, normal, high };
    Kind kind = Kind::any;
    Lane lane = Lane::either;
    uint32_t type = 8; /**< of the message; 8: application message */
    std::string payload;

    bool fits(uint32_t itsType, bool high, const std::string &its) const {
        if (itsType != type || (lane == Lane::high && !high) || (lane == Lane::normal && high)) return false;
        return kind == Kind::any ||
               (kind == Kind::text ? its == payload : its.compare(0, payload.size(), payload) == 0);
    }
};

/** What is done when it has come. */
struct Act {
    enum class Kind { answer, raw, wait, die };
    Kind kind = Kind::answer;
    int32_t code = 0;
    bool echo = false;                 /**< the payload is the request's */
    std::optional<uint32_t> announced; /**< in place of the payload's length */
    std::string payload;               /**< raw: the whole datagram */
    std::chrono::milliseconds delay{0};
};

/** One expectation; `line` is 0 when it comes from code. */
struct Step {
    Match match;
    std::vector<Act> acts;
    uint32_t times = 1; /**< 0: any number of times */
    std::size_t line = 0;
};

/** Steps in their order. */
struct Script {
    std::vector<Step> steps;

    /** Reads a text; `name` is for messages. Throws ScriptError. */
    static Script parse(const std::string &text, const std::string &name);
};

namespace detail {

/** Words of a line: as they are, or in quotes with \n, \t, \\, \" and \x00 for a byte. */
class Line {
  public:
    struct Word {
        std::string text;
        bool quoted = false;
    };

    Line(const std::string &line, std::string where) : where_(std::move(where)) {
        for (std::size_t at = 0; at < line.size();) {
            if (line[at] == '#') break;
            if (line[at] == ' ' || line[at] == '\t' || line[at] == '\r')
                ++at;
            else
                words_.push_back(line[at] == '"' ? quoted(line, at) : plain(line, at));
        }
    }

    [[noreturn]] void wrong(const std::string &what) const { throw ScriptError(where_ + ": " + what); }
    bool empty() const { return next_ == words_.size(); }

    /** Takes the next word if it is this one. */
    bool takes(const char *word) {
        if (empty() || words_[next_].quoted || words_[next_].text != word) return false;
        ++next_;
        return true;
    }
    bool quotedNext() const { return !empty() && words_[next_].quoted; }

    Word take(const char *what) {
        if (empty()) wrong(std::string("here belongs ") + what);
        return words_[next_++];
    }
    std::string text(const char *what) {
        const Word word = take(what);
        if (!word.quoted) wrong("\"" + word.text + "\" is no " + what + ": a text is in quotes");
        return word.text;
    }
    int64_t number(const char *what, int64_t least, int64_t most) {
        const Word word = take(what);
        char *end = nullptr;
        errno = 0;
        const long long value = strtoll(word.text.c_str(), &end, 0);
        if (word.quoted || word.text.empty() || *end != '\0' || errno != 0 || value < least || value > most)
            wrong("\"" + word.text + "\" is no " + what + " from " + std::to_string(least) + " to " +
                  std::to_string(most));
        return value;
    }
    std::string hex() {
        const Word word = take("bytes in hexadecimal");
        std::string bytes;
        bool sound = !word.quoted && word.text.size() % 2 == 0;
        for (std::size_t i = 0; sound && i < word.text.size(); i += 2) {
            const int high = digit(word.text[i]);
            const int low = digit(word.text[i + 1]);
            sound = high >= 0 && low >= 0;
            bytes += static_cast<char>(high << 4 | low);
        }
        if (!sound) wrong("\"" + word.text + "\" are no bytes in hexadecimal");
        return bytes;
    }
    std::chrono::milliseconds time() {
        const Word word = take("a time");
        char *unit = nullptr;
        errno = 0;
        const long value = strtol(word.text.c_str(), &unit, 10);
        const std::string name = unit;
        if (word.text.empty() || unit == word.text.c_str() || errno != 0 || value < 0 || value > 86400000 ||
            (name != "ms" && name != "s"))
            wrong("\"" + word.text + "\" is no time; examples: 50ms, 3s");
        return std::chrono::milliseconds(name == "s" ? value * 1000 : value);
    }
    void end() {
        if (!empty()) wrong("\"" + words_[next_].text + "\" does not belong here");
    }

  private:
    static int digit(char c) {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
    }
    static Word plain(const std::string &line, std::size_t &at) {
        const std::size_t end = std::min(line.find_first_of(" \t\r", at), line.size());
        Word word{line.substr(at, end - at), false};
        at = end;
        return word;
    }
    Word quoted(const std::string &line, std::size_t &at) const {
        Word word{"", true};
        for (++at; at < line.size() && line[at] != '"'; ++at)
            word.text += line[at] == '\\' ? escaped(line, at) : line[at];
        if (at == line.size()) wrong("a quote has no end");
        ++at;
        return word;
    }
    char escaped(const std::string &line, std::size_t &at) const {
        const char kind = ++at < line.size() ? line[at] : '\0';
        if (kind == 'n') return '\n';
        if (kind == 't') return '\t';
        if (kind == '\\' || kind == '"') return kind;
        const int high = at + 1 < line.size() ? digit(line[at + 1]) : -1;
        const int low = at + 2 < line.size() ? digit(line[at + 2]) : -1;
        if (kind != 'x' || high < 0 || low < 0)
            wrong("a backslash is followed by n, t, a backslash, a quote, or x and two digits");
        at += 2;
        return static_cast<char>(high << 4 | low);
    }

    std::string where_;
    std::vector<Word> words_;
    std::size_t next_ = 0;
};

inline Step expectation(Line &line) {
    Step step;
    const bool prefix = line.takes("prefix");
    if (prefix || line.quotedNext()) {
        step.match.kind = prefix ? Match::Kind::prefix : Match::Kind::text;
        step.match.payload = line.text("text");
    } else if (line.takes("hex")) {
        step.match.kind = Match::Kind::text;
        step.match.payload = line.hex();
    } else if (!line.takes("any")) {
        line.wrong("behind \"expect\" belongs any, a text in quotes, prefix and a text, or hex and bytes");
    }
    while (!line.empty()) {
        if (line.takes("high"))
            step.match.lane = Match::Lane::high;
        else if (line.takes("normal"))
            step.match.lane = Match::Lane::normal;
        else if (line.takes("type"))
            step.match.type = static_cast<uint32_t>(line.number("type", 0, UINT32_MAX));
        else if (line.takes("times"))
            step.times = static_cast<uint32_t>(line.number("number", 1, UINT32_MAX));
        else if (line.takes("repeatedly"))
            step.times = 0;
        else
            line.end();
    }
    return step;
}

constexpr int64_t kLargestDatagram = 1 << 20;

inline Act answer(Line &line) {
    Act act;
    act.code = static_cast<int32_t>(line.number("code", INT32_MIN, INT32_MAX));
    if (line.quotedNext())
        act.payload = line.text("text");
    else if (line.takes("hex"))
        act.payload = line.hex();
    else if (line.takes("echo"))
        act.echo = true;
    else if (line.takes("size"))
        act.payload.assign(static_cast<std::size_t>(line.number("size", 0, kLargestDatagram)), 'x');
    if (line.takes("announce")) act.announced = static_cast<uint32_t>(line.number("length", 0, UINT32_MAX));
    return act;
}

inline Act action(Line &line) {
    Act act;
    if (line.takes("answer")) return answer(line);
    if (line.takes("raw")) {
        act.kind = Act::Kind::raw;
        act.payload = line.quotedNext() ? line.text("text") : line.hex();
    } else if (line.takes("wait")) {
        act.kind = Act::Kind::wait;
        act.delay = line.time();
    } else if (line.takes("die")) {
        act.kind = Act::Kind::die;
    } else {
        line.wrong("\"" + line.take("a word").text + "\" is not known: expect, answer, raw, wait, die");
    }
    return act;
}

}  // namespace detail

inline Script Script::parse(const std::string &text, const std::string &name) {
    Script script;
    std::size_t number = 0;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        detail::Line line(text.substr(begin, end - begin), name + ":" + std::to_string(++number));
        begin = end + 1;
        if (line.empty()) continue;
        if (line.takes("expect")) {
            script.steps.push_back(detail::expectation(line));
            script.steps.back().line = number;
        } else if (script.steps.empty()) {
            line.wrong("a script begins with \"expect\"");
        } else {
            script.steps.back().acts.push_back(detail::action(line));
        }
        line.end();
    }
    if (script.steps.empty()) throw ScriptError(name + ": the script expects nothing");
    return script;
}

}  // namespace vos::test

#endif
