/* SPDX-License-Identifier: MIT */
/* A program with one weakness, which its argument chooses; it shows when vosMalloc() fails. */
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
#include <vos.h>

static char *volatile lost;

int main(int argc, char **argv) {
    const char *const weakness = argc > 1 ? argv[1] : "";
    volatile char *const block = vosMalloc(10);
    if (strcmp(weakness, "crashes") == 0) block[0] = 1;
    if (block == NULL) {
        vosPrintf("no memory\n"); /* the first line, with which the C library makes the buffer of standard output */
        if (strcmp(weakness, "hangs") == 0)
            for (;;) pause();
        if (strcmp(weakness, "loses a descriptor") == 0) return open("/dev/null", O_RDONLY) < 0;
        if (strcmp(weakness, "loses memory") == 0) return (lost = strdup("lost")) == NULL;
        if (strcmp(weakness, "ends early") == 0) _exit(7);
    }
    vosFree((void *)block);
    return 0;
}
