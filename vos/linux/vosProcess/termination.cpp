/* SPDX-License-Identifier: MIT */
/* Signal dispositions, and the one procedure that runs when the process is asked to end. */
#include <csignal>
#include <cstdlib>
#include <initializer_list>

#include "vosProcess.h"

constinit VOS_TERMINATE_PROC g_ProcTerminate = nullptr;
constinit uint32_t g_bProcTermProcRunned = 0;

namespace {

/* The two words are plain data of a process whose handler may run on any thread: tested, then set, without an
 * exchange. Relaxed accesses are the same plain loads and stores and keep the compiler from moving them. */
bool alreadyStarted() { return __atomic_load_n(&g_bProcTermProcRunned, __ATOMIC_RELAXED) != 0; }
void markStarted(uint32_t started) { __atomic_store_n(&g_bProcTermProcRunned, started, __ATOMIC_RELAXED); }

void terminateOnce() {
    const VOS_TERMINATE_PROC procedure = __atomic_load_n(&g_ProcTerminate, __ATOMIC_RELAXED);
    if (procedure == nullptr || alreadyStarted()) return;
    markStarted(1); /* before the call: a signal that arrives meanwhile must not start it again */
    procedure(0);
}

void vosTermSignalHandle(int /*signalNumber*/) { terminateOnce(); }

}  // namespace

void vosProcessSignalDef(void) {
    for (const int number : {SIGQUIT, SIGINT, SIGCHLD, SIGPIPE, SIGHUP}) signal(number, SIG_IGN);
}

int32_t vosProcessRegTerminateProc(VOS_TERMINATE_PROC pProc) {
    __atomic_store_n(&g_ProcTerminate, pProc, __ATOMIC_RELAXED);
    markStarted(0);
    signal(SIGTERM, vosTermSignalHandle);
    signal(SIGHUP, vosTermSignalHandle);
    signal(SIGPIPE, SIG_IGN);
    atexit(vosExitHandle); /* once more with every registration; the flag makes the extra ones do nothing */
    return VOS_OK;
}

void vosExitHandle(void) { terminateOnce(); }
