/* SPDX-License-Identifier: MIT */
/* Starts the processes of the OLT, and ends them in the opposite order when it is told to end.
 *
 *     initd DIRECTORY
 */
#include <stdio.h>
#include <unistd.h>

#include "olt.h"

static int32_t g_iOltd;
static int32_t g_iMgmtd;

/* Runs inside a signal handler: kills and waits, which such a handler may do. */
static void terminate(int32_t iReserved) {
    (void)iReserved;
    if (g_iMgmtd > 0) vosProcessDestroy(g_iMgmtd);
    if (g_iOltd > 0) vosProcessDestroy(g_iOltd);
    _exit(0);
}

static int32_t create(const char *pDirectory, const char *pName, int32_t iPriority) {
    char path[256];
    snprintf(path, sizeof path, "%s/%s", pDirectory, pName);
    const int32_t pid = vosProcessCreate(path, iPriority, 0, NULL);
    if (pid <= 0) fprintf(stderr, "initd: %s was not started: %d\n", path, pid);
    return pid;
}

int main(int argc, char **argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: initd DIRECTORY\n");
        return 2;
    }
    vosProcessInit("initd");
    vosProcessRegTerminateProc(terminate);
    g_iOltd = create(argv[1], OLTD, 20);
    g_iMgmtd = create(argv[1], MGMTD, 10);
    if (g_iOltd <= 0 || g_iMgmtd <= 0) return 1; /* ends what was started: a return is an end, too */
    for (;;) pause();
}
