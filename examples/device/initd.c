/* SPDX-License-Identifier: MIT */
/* Starts the processes of the OLT, and ends them in the opposite order when it gets SIGTERM. When one of them cannot
 * be started, the other is ended as well.
 *
 *     initd DIRECTORY
 */
#define _GNU_SOURCE /* environ, pipe2() */
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <unistd.h>

#include "olt.h"

#define OLTD_PRIORITY  20
#define MGMTD_PRIORITY 10

static int32_t g_iOltd;
static int32_t g_iMgmtd;
static pid_t g_iSelf;
static volatile sig_atomic_t g_iNotExecuted;
static int g_aiEnd[2]; /* a pipe: a byte in it asks the main loop to end */

/* May run inside a signal handler, so the main loop does the work. It also runs in a child that could not execute its
 * program. That child still shares initd's memory. */
static void terminate(int32_t iReserved) {
    (void)iReserved;
    if (getpid() != g_iSelf)
        g_iNotExecuted = 1;
    else if (write(g_aiEnd[1], "", 1) < 0)
        _exit(1);
}

/* Without this right vosProcessCreate() starts a program and fails, and the program's process id is lost. So initd
 * first finds out whether it has the right: it makes itself real-time, and then normal again. */
static bool mayBeRealTime(void) {
    struct sched_param before;
    const struct sched_param highest = {.sched_priority = OLTD_PRIORITY};
    const int policy = sched_getscheduler(0);
    if (policy < 0 || sched_getparam(0, &before) != 0 || sched_setscheduler(0, SCHED_RR, &highest) != 0) return false;
    return sched_setscheduler(0, policy, &before) == 0;
}

/* Starts a program with the policy of initd. posix_spawn() runs no signal handler of initd in the new process. */
static int32_t createNormal(char *pPath) {
    pid_t pid = -1;
    char *const argument[] = {pPath, NULL};
    return posix_spawn(&pid, pPath, NULL, NULL, argument, environ) == 0 ? pid : VOS_ERROR;
}

static bool create(const char *pDirectory, const char *pName, int32_t iPriority, bool bRealTime, int32_t *pPid) {
    char path[256];
    const int length = snprintf(path, sizeof path, "%s/%s", pDirectory, pName);
    if (length < (int)sizeof path && access(path, X_OK) == 0)
        *pPid = bRealTime ? vosProcessCreate(path, iPriority, 0, NULL) : createNormal(path);
    if (*pPid > 0 && !g_iNotExecuted) return true;
    *pPid = 0; /* the id of a child that has ended */
    fprintf(stderr, "initd: %s was not started\n", path);
    return false;
}

static void stop(void) {
    if (g_iMgmtd > 0) vosProcessDestroy(g_iMgmtd);
    if (g_iOltd > 0) vosProcessDestroy(g_iOltd);
}

int main(int argc, char **argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: initd DIRECTORY\n");
        return 2;
    }
    const bool realTime = mayBeRealTime();
    if (!realTime) fprintf(stderr, "initd: no right to real-time priorities, so the processes run without them\n");
    if (pipe2(g_aiEnd, O_CLOEXEC) != 0) return 1;
    g_iSelf = getpid();
    vosProcessInit("initd");
    vosProcessRegTerminateProc(terminate);
    const bool started = create(argv[1], OLTD, OLTD_PRIORITY, realTime, &g_iOltd) &&
                         create(argv[1], MGMTD, MGMTD_PRIORITY, realTime, &g_iMgmtd);
    char byte;
    while (started && read(g_aiEnd[0], &byte, 1) != 1) continue;
    stop();
    _exit(started ? 0 : 1); /* _exit(), because after a failed start exit() does not run its hooks again */
}
