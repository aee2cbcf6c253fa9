/* SPDX-License-Identifier: MIT */
/* The leveled log line. */
#include "../base/log.h"

#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <span>

#include "../base/errnoKeeper.h"
#include "vosDebug.h"
#include "vosProcess.h"

constinit uint32_t g_ulVosDebugFlags = VOS_DEBUG_ERROR;

namespace {

/* The line: a header in which each percent sign of the process name may be doubled, and the body. */
using Line = std::array<char, 2 * VOS_PRINTF_HEAD_LEN + vos::kLineBody>;

/* Writes the header and returns its length in the line, or 0 when it would show more than VOS_PRINTF_HEAD_LEN
 * characters. The name may come from the command line, and the line is used as a format: its percent signs must not
 * become conversions. */
std::size_t writeHeader(Line &line) {
    std::array<char, VOS_PRINTF_HEAD_LEN + 1> plain;
    const int length = snprintf(plain.data(), plain.size(), "\r\n%s(%d) ", vosProcessGetName(), getpid());
    if (length < 0 || length > VOS_PRINTF_HEAD_LEN) return 0;
    std::size_t end = 0;
    for (const char c : std::span{plain}.first(static_cast<std::size_t>(length))) {
        if (c == '%') line[end++] = '%';
        line[end++] = c;
    }
    return end;
}

/* Formats the body. One that is too long is cut. The line is used as a format afterwards, so a pair of percent signs
 * must not be cut in two: a single percent sign would begin a conversion. */
[[gnu::format(printf, 2, 0)]] void writeBody(char *body, const char *format, va_list arguments) {
    const int length = vsnprintf(body, vos::kLineBody, format, arguments);
    if (length < 0) body[0] = '\0';
    if (length < static_cast<int>(vos::kLineBody)) return;
    std::size_t end = vos::kLineBody - 1;
    while (end > 0 && body[end - 1] == '%') --end;
    if ((vos::kLineBody - 1 - end) % 2 != 0) body[vos::kLineBody - 2] = '\0';
}

}  // namespace

int32_t vosDebugConfig(uint32_t ulFlags) {
    __atomic_store_n(&g_ulVosDebugFlags, ulFlags, __ATOMIC_RELAXED);
    return VOS_OK;
}

int32_t vosDebugPrintf(uint32_t ulLevel, const char *pFormat, ...) {
    if (!vos::logged(ulLevel)) return 0;

    const vos::ErrnoKeeper keep; /* callers use errno of a failed call after they have logged */
    Line line;
    const std::size_t header = writeHeader(line);
    if (header == 0) {
        vosPrintf("\r\n%s iLen > VOS_PRINTF_HEAD_LEN.", __func__);
        return VOS_ERROR;
    }
    va_list arguments;
    va_start(arguments, pFormat);
    writeBody(&line[header], pFormat, arguments);
    va_end(arguments);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    return vosPrintf(line.data()); /* a second formatting pass, as callers that double their percent signs expect */
#pragma GCC diagnostic pop
}
