/* SPDX-License-Identifier: MIT */
/* Checks. A failed one is printed on the console, and counted. */
#pragma once

#include <cstdarg>
#include <cstdio>

inline int g_notSo = 0;

__attribute__((format(printf, 2, 3))) inline bool expect(bool so, const char *format, ...) {
    if (so) return true;
    va_list list;
    va_start(list, format);
    printf("NOT SO: ");
    vprintf(format, list);
    printf("\n");
    fflush(stdout);
    va_end(list);
    ++g_notSo;
    return false;
}
