/* SPDX-License-Identifier: MIT */
/* Signal dispositions, and the one procedure that runs when the process is asked to end. */
#include <csignal>
#include <cstdlib>
#include <initializer_list>

#include "../base/errnoKeeper.h"
#include "vosProcess.h"

constinit VOS_TERMINATE_PROC g_ProcTerminate = nullptr;
constinit uint32_t g_bProcTermProcRunned = 0;

namespace {

/* The handler may run on any thread and at any instruction. The flag is read with acquire and written with release
 * order. So a thread that reads 0 also reads the procedure that was stored before. The test and the set are two steps,
 * not one exchange. */
bool alreadyStarted() { return __atomic_load_n(&g_bProcTermProcRunned, __ATOMIC_ACQUIRE) != 0; }
void markStarted(uint32_t started) { __atomic_store_n(&g_bProcTermProcRunned, started, __ATOMIC_RELEASE); }

void terminateOnce() {
    if (alreadyStarted()) return;
    const VOS_TERMINATE_PROC procedure = __atomic_load_n(&g_ProcTerminate, __ATOMIC_ACQUIRE);
    if (procedure == nullptr) return;
    markStarted(1); /* before the call: a signal that arrives meanwhile must not start it again */
    procedure(0);
}

void vosTermSignalHandle(int /*signalNumber*/) {
    const vos::ErrnoKeeper keep; /* the interrupted code may be about to read it */
    terminateOnce();
}

}  // namespace

void vosProcessSignalDef(void) {
    for (const int number : {SIGQUIT, SIGINT, SIGCHLD, SIGPIPE, SIGHUP}) signal(number, SIG_IGN);
}

int32_t vosProcessRegTerminateProc(VOS_TERMINATE_PROC pProc) {
    __atomic_store_n(&g_ProcTerminate, pProc, __ATOMIC_RELEASE);
    markStarted(0);
    signal(SIGTERM, vosTermSignalHandle);
    signal(SIGHUP, vosTermSignalHandle);
    signal(SIGPIPE, SIG_IGN);
    atexit(vosExitHandle); /* once more with every registration; the flag makes the extra ones do nothing */
    return VOS_OK;
}

void vosExitHandle(void) { terminateOnce(); }
