/* SPDX-License-Identifier: MIT */
/* Prints in KiB how much private memory the library needs in this process. Private memory is in no file, and no other
 * process shares it. "loaded" is the memory of the library's own pages before any call. "initialised" is the growth of
 * the whole process after the three calls of a start-up. */
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "vos.h"

/* The buffer is static and the reader allocates nothing, so that the measurement does not change the result. */
static char text[256 * 1024];

static const char *readWhole(const char *path) {
    const int fd = open(path, O_RDONLY);
    size_t length = 0;
    ssize_t count;
    if (fd < 0) exit(2);
    while ((count = read(fd, text + length, sizeof text - 1 - length)) > 0) length += (size_t)count;
    close(fd);
    text[length] = '\0';
    return text;
}

static unsigned long figure(const char *from, const char *name) {
    const char *const line = strstr(from, name);
    return line != NULL ? strtoul(line + strlen(name), NULL, 10) : 0;
}

static unsigned long ofProcess(void) { return figure(readWhole("/proc/self/smaps_rollup"), "Anonymous:"); }

/* The mappings of the library's file, and the anonymous one that begins where they end. */
static unsigned long ofLibrary(void) {
    unsigned long sum = 0, end = 0;
    for (const char *line = readWhole("/proc/self/smaps"); line != NULL && *line != '\0';) {
        const char *const next = strchr(line, '\n');
        unsigned long from, to;
        char path[256] = "";
        if (sscanf(line, "%lx-%lx %*s %*s %*s %*s%*[ ]%255[^\n]", &from, &to, path) >= 2) {
            if (strstr(path, "/libvos.so") != NULL || (path[0] == '\0' && from == end)) {
                sum += figure(line, "Anonymous:");
                end = to;
            }
        }
        line = next != NULL ? next + 1 : NULL;
    }
    return sum;
}

int main(void) {
    VOS_MSG_PEER peer;
    const unsigned long loaded = ofLibrary();
    ofProcess();
    const unsigned long before = ofProcess();
    vosInit("footprint");
    if (vosProcessInit("footprint") != VOS_OK || vosMsgInit("footprint", 1, &peer) != VOS_OK) return 1;
    const unsigned long after = ofProcess();
    printf("\nloaded %lu\ninitialised %lu\n", loaded, after - before);
    return 0;
}
