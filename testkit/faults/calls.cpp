/* SPDX-License-Identifier: MIT */
#include "calls.h"

#include <cctype>
#include <cstring>

namespace vosfaults {

namespace {

/* The kinds of failure in the table of the C library's calls. */
constexpr Failure ERRNO = Failure::Errno;
constexpr Failure OUTPUT = Failure::Errno;
constexpr Failure NOTHING = Failure::Nothing;
constexpr Failure ZERO = Failure::Nothing;
constexpr Failure ABSENT = Failure::Nothing;
constexpr Failure CODE = Failure::Code;
constexpr Failure EARLY = Failure::Early;
constexpr Failure RELEASED = Failure::Released;

/* Calls that only print and format, or that only some processors need, are not tried one by one. */
constexpr bool isTried(const char *failure) { return failure[0] != 'O' && failure[0] != 'A'; }

struct Alias {
    const char *name;
    const char *plain;
};
constexpr Alias kAliases[] = {
    {"__cxa_atexit", "atexit"},   {"__xpg_strerror_r", "strerror_r"}, {"fcntl64", "fcntl"},
    {"__open_2", "open"},         {"__openat_2", "openat"},           {"__read_chk", "read"},
    {"__recv_chk", "recv"},       {"__recvfrom_chk", "recvfrom"},     {"__printf_chk", "printf"},
    {"__vprintf_chk", "vprintf"}, {"__vfprintf_chk", "vfprintf"},     {"__vsnprintf_chk", "vsnprintf"}};

bool isWord(char c) { return isalnum(static_cast<unsigned char>(c)) != 0 || c == '_'; }

/* Whether the parameter [begin, end) has this name and type. */
bool isParameter(const char *begin, const char *end, const char *name, const char *type) {
    while (begin < end && (*begin == '(' || *begin == ' ')) ++begin;
    while (end > begin && !isWord(end[-1])) --end;
    const std::size_t length = strlen(name);
    const auto have = static_cast<std::size_t>(end - begin);
    if (have < length || strncmp(end - length, name, length) != 0 ||
        (have > length && isWord(end[-1 - static_cast<long>(length)])))
        return false;
    return strncmp(begin, type, strlen(type)) == 0;
}

}  // namespace

const Call kCalls[] = {
#define EXPORT(name, parameters, usual, kind) \
    {#name, parameters, (kind) == 0 ? Failure::Unknown : Failure::Value, usual, (kind) == 2, true},
#include "exports.inc"
#undef EXPORT
#define FAILS(result, name, parameters, arguments, failure) {#name, #parameters, failure, -1, isTried(#failure), false},
#define MOVES(result, name, parameters, arguments, length)  {#name, #parameters, Failure::Errno, -1, true, false},
#define GIVES(name, parameters, arguments)                  {#name, #parameters, Failure::Given, -1, true, false},
#define OTHER(name, parameters, failure)                    {#name, #parameters, failure, -1, isTried(#failure), false},
#include "calls.inc"
};
static_assert(sizeof kCalls / sizeof *kCalls <= kMostCalls);
const std::size_t kCallCount = sizeof kCalls / sizeof *kCalls;

const std::size_t kExportCount = 0
#define EXPORT(name, parameters, usual, kind) +1
#include "exports.inc"
#undef EXPORT
    ;

std::size_t findCall(const char *name) {
    for (const Alias &alias : kAliases)
        if (strcmp(alias.name, name) == 0) name = alias.plain;
    std::size_t i = 0;
    while (i < kCallCount && strcmp(kCalls[i].name, name) != 0) ++i;
    return i;
}

int positionOf(const Call &call, const char *parameter, const char *type) {
    int position = 0;
    for (const char *begin = call.parameters;; ++position) {
        const char *const end = begin + strcspn(begin, ",");
        if (isParameter(begin, end, parameter, type)) return position;
        if (*end == '\0') return -1;
        begin = end + 1;
    }
}

}  // namespace vosfaults
