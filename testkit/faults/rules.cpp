/* SPDX-License-Identifier: MIT */
#include "rules.h"

#include <fnmatch.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "calls.h"

namespace vosfaults {

namespace {

constexpr const char *kBetween = " \t\r\n,;";

struct Code {
    const char *name;
    long value;
};
constexpr Code kCodes[] = {
#define CODE(name, value) {name, value},
#include "exports.codes"
#undef CODE
    {"null", 0},
};

/* Reads one rule; a step returns false when it has written the message. */
class Reader {
  public:
    Reader(Rule &rule, char *message, std::size_t size) : rule_(rule), at_(rule.text), message_(message), size_(size) {}

    bool read() {
        rule_.first = 1;
        rule_.last = UINT32_MAX;
        rule_.share = 100;
        rule_.usual = true;
        rule_.action = Action::Fail;
        return call() && place() && which() && share() && delay() && outcome() && end();
    }

  private:
    [[gnu::format(printf, 2, 3)]] bool wrong(const char *format, ...) {
        char what[160];
        va_list list;
        va_start(list, format);
        vsnprintf(what, sizeof what, format, list);
        va_end(list);
        snprintf(message_, size_, "\"%s\": %s", rule_.text, what);
        return false;
    }

    /* Copies up to one of the characters; false when nothing is there, or too much. */
    bool take(const char *until, char *to, std::size_t size) {
        const std::size_t length = strcspn(at_, until);
        if (length == 0 || length >= size) return false;
        memcpy(to, at_, length);
        to[length] = '\0';
        at_ += length;
        return true;
    }

    bool number(uint64_t most, uint64_t &value) {
        value = 0;
        if (*at_ < '0' || *at_ > '9') return false;
        for (; *at_ >= '0' && *at_ <= '9'; ++at_) {
            value = value * 10 + static_cast<uint64_t>(*at_ - '0');
            if (value > most) return false;
        }
        return true;
    }

    bool call() {
        if (!take("@#%+=", rule_.call, sizeof rule_.call)) return wrong("a rule begins with the name of a call");
        usualKnown_ = true;
        bool found = false;
        for (std::size_t i = 0; i < kCallCount; ++i)
            if (names(rule_, kCalls[i].name)) {
                found = true;
                call_ = &kCalls[i];
                usualKnown_ = usualKnown_ && kCalls[i].failure != Failure::Unknown;
            }
        if (found) return true;
        const char *const near = nearest();
        return near != nullptr ? wrong("there is no call \"%s\"; did you mean \"%s\"?", rule_.call, near)
                               : wrong("there is no call \"%s\"; \"vos-faults --list\" prints all", rule_.call);
    }

    /* A name that begins or ends alike, in capital or small letters. */
    const char *nearest() const {
        const char *best = nullptr;
        std::size_t most = 3;
        const std::size_t length = strlen(rule_.call);
        for (std::size_t i = 0; i < kCallCount; ++i) {
            const char *const name = kCalls[i].name;
            const std::size_t has = strlen(name);
            std::size_t front = 0;
            while (front < length && front < has && strncasecmp(name + front, rule_.call + front, 1) == 0) ++front;
            std::size_t back = 0;
            while (back + front < length && back + front < has &&
                   strncasecmp(name + has - 1 - back, rule_.call + length - 1 - back, 1) == 0)
                ++back;
            if (front + back > most && front + back + 3 > has) {
                most = front + back;
                best = name;
            }
        }
        return best;
    }

    bool place() {
        if (*at_ != '@') return true;
        ++at_;
        return take("#%+=", rule_.where, sizeof rule_.where) ||
               wrong("behind \"@\" belongs the name of a peer or a path, of up to %zu characters",
                     sizeof rule_.where - 1);
    }

    bool which() {
        if (*at_ != '#') return true;
        ++at_;
        uint64_t value = 0;
        if (!number(UINT32_MAX, value) || value == 0) return wrong("behind \"#\" belongs a number from 1");
        rule_.first = rule_.last = static_cast<uint32_t>(value);
        if (strncmp(at_, "..", 2) != 0) return true;
        at_ += 2;
        rule_.last = UINT32_MAX;
        if (*at_ < '0' || *at_ > '9') return true;
        if (!number(UINT32_MAX, value) || value < rule_.first) return wrong("the range ends before it begins");
        rule_.last = static_cast<uint32_t>(value);
        return true;
    }

    bool share() {
        if (*at_ != '%') return true;
        ++at_;
        uint64_t value = 0;
        if (!number(100, value) || value == 0) return wrong("behind \"%%\" belongs a share from 1 to 100");
        rule_.share = static_cast<uint32_t>(value);
        return true;
    }

    bool delay() {
        if (*at_ != '+') return true;
        ++at_;
        uint64_t value = 0;
        if (!number(1000000000, value)) return wrong("behind \"+\" belongs a time, such as 50ms");
        constexpr struct {
            const char *unit;
            uint64_t nanoseconds;
        } kUnits[] = {{"us", 1000}, {"ms", 1000000}, {"s", 1000000000}};
        for (const auto &each : kUnits)
            if (strncmp(at_, each.unit, strlen(each.unit)) == 0) {
                at_ += strlen(each.unit);
                rule_.delay = value * each.nanoseconds;
                rule_.action = Action::Pass;
                return true;
            }
        return wrong("a time has the unit us, ms or s");
    }

    bool errorNumber(int &error) {
        for (int i = 1; i < 200; ++i) {
            const char *const name = strerrorname_np(i);
            if (name == nullptr || strncmp(at_, name, strlen(name)) != 0 || at_[strlen(name)] != '\0') continue;
            error = i;
            at_ += strlen(name);
            return true;
        }
        return false;
    }

    bool shortTransfer() {
        at_ += strlen("short:");
        uint64_t value = 0;
        if (!number(INT32_MAX, value)) return wrong("behind \"short:\" belongs a number of bytes");
        if (strpbrk(rule_.call, "*?") != nullptr || positionOf(*call_, "length", "size_t") < 0)
            return wrong("%s moves no bytes", rule_.call);
        rule_.action = Action::Shorten;
        rule_.shortTo = static_cast<long>(value);
        return true;
    }

    bool result() {
        char word[32];
        if (!take(":", word, sizeof word)) return wrong("behind \"=\" belongs a result, or the name of an error");
        rule_.usual = false;
        bool known = false;
        for (const Code &code : kCodes)
            if (strcmp(code.name, word) == 0) {
                rule_.result = code.value;
                known = true;
            }
        char *rest = nullptr;
        errno = 0;
        if (!known) rule_.result = strtol(word, &rest, 0);
        if (!known && (*rest != '\0' || rest == word || errno != 0))
            return wrong("\"%s\" is no number, no code of libvos and no errno", word);
        if (*at_ != ':') return true;
        ++at_;
        return errorNumber(rule_.error) || wrong("\"%s\" is no errno", at_);
    }

    bool outcome() {
        if (*at_ != '=') {
            return rule_.action == Action::Pass || usualKnown_ ||
                   wrong("it is not known how %s fails: name a result, such as %s=-1", rule_.call, rule_.call);
        }
        ++at_;
        rule_.action = Action::Fail;
        if (strcmp(at_, "kill") == 0) {
            at_ += strlen("kill");
            rule_.action = Action::Kill;
            return true;
        }
        if (strncmp(at_, "short:", strlen("short:")) == 0) return shortTransfer();
        if (errorNumber(rule_.error))
            return usualKnown_ || wrong("it is not known how %s fails: name a result, too", rule_.call);
        return result();
    }

    bool end() { return *at_ == '\0' || wrong("\"%s\" cannot be read", at_); }

    Rule &rule_;
    const char *at_;
    char *message_;
    std::size_t size_;
    const Call *call_ = nullptr;
    bool usualKnown_ = false;
};

}  // namespace

bool names(const Rule &rule, const char *call) { return fnmatch(rule.call, call, 0) == 0; }

bool parseRules(const char *text, Rules &rules, char *message, std::size_t size) {
    rules = {};
    for (text += strspn(text, kBetween); *text != '\0'; text += strspn(text, kBetween)) {
        const std::size_t length = strcspn(text, kBetween);
        if (rules.count == Rules::kMost) {
            snprintf(message, size, "there are more than %zu rules", Rules::kMost);
            return false;
        }
        Rule &rule = rules.rule[rules.count++];
        if (length >= sizeof rule.text) {
            snprintf(message, size, "\"%.40s...\": a rule has up to %zu characters", text, sizeof rule.text - 1);
            return false;
        }
        memcpy(rule.text, text, length);
        if (!Reader(rule, message, size).read()) return false;
        text += length;
    }
    return true;
}

}  // namespace vosfaults
