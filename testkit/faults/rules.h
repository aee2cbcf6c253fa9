/* SPDX-License-Identifier: MIT */
/* Which calls fail or wait, as a text says it: "vosMsgSend#3=-1:ETIMEDOUT write@/flash=ENOSPC vosMsgRecv+50ms". */
#ifndef TESTKIT_FAULTS_RULES_H
#define TESTKIT_FAULTS_RULES_H

#include <cstddef>
#include <cstdint>

namespace vosfaults {

enum class Action { Pass, Fail, Shorten, Kill };

struct Rule {
    char text[96];
    char call[48];  /* a name, or a pattern with "*" and "?" */
    char where[64]; /* peer or path; empty: any */
    uint32_t first; /* the occurrences, counted from 1 among those that fit `where` */
    uint32_t last;
    uint32_t share; /* percent of them */
    uint64_t delay; /* in nanoseconds */
    Action action;
    bool usual; /* the call's usual failure */
    long result;
    int error;    /* 0: the usual one */
    long shortTo; /* bytes */
};

struct Rules {
    static constexpr std::size_t kMost = 64;
    Rule rule[kMost];
    std::size_t count;
};

/* Reads rules with blanks, commas or semicolons between them. False: `message` says what is wrong. */
bool parseRules(const char *text, Rules &rules, char *message, std::size_t size);

/* Whether the rule's name or pattern is this call's. */
bool names(const Rule &rule, const char *call);

}  // namespace vosfaults

#endif
