/* SPDX-License-Identifier: MIT */
/* Plain printing: standard output and the console. */
#include <cstdarg>
#include <cstdio>

#include "vosDebug.h"

int32_t vosPrintf(const char *pFormat, ...) {
    va_list arguments;
    va_start(arguments, pFormat);
    const int written = vprintf(pFormat, arguments);
    va_end(arguments);
    fflush(stdout); /* a line must be seen even if the process crashes right after it */
    return written;
}

int32_t vosPrintConsole(const char *pFormat, ...) {
    FILE *const console = fopen("/dev/console", "r+e");
    if (console == nullptr) return VOS_ERROR;
    va_list arguments;
    va_start(arguments, pFormat);
    const int written = vfprintf(console, pFormat, arguments);
    va_end(arguments);
    fclose(console);
    return written;
}
