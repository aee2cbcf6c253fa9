/* SPDX-License-Identifier: MIT */
/* Thin queries about processes, and the option parser. */
#include <sched.h>
#include <unistd.h>

#include "vosProcess.h"

int32_t vosProcessGetId(void) { return getpid(); }

int32_t vosProcessCheck(int32_t iPid) { return sched_getscheduler(iPid) == -1 ? VOS_ERROR : VOS_OK; }

int32_t vosGetopt(int32_t iArgc, char *const *ppArgv, const char *pOptions) { return getopt(iArgc, ppArgv, pOptions); }
