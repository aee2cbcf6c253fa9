/* SPDX-License-Identifier: MIT */
/* A process takes its name, writes log lines under it, and cleans up when it ends. */
#include <stdlib.h>
#include <vos.h>

static void cleanUp(int32_t reserved) {
    (void)reserved;
    vosPrintf("\r\n\r\nThe termination procedure runs once, when the process ends.\r\n");
}

int main(void) {
    vosPrintf("Before it has a name, a process is known by its command line, and only errors are printed:");
    vosDebugPrintf(VOS_DEBUG_TRACE, "%s:this trace line is filtered out.", __func__);
    vosDebugPrintf(VOS_DEBUG_ERROR, "%s:this is an error line.", __func__);

    vosPrintf("\r\n\r\nNow it is named, and trace lines are switched on:");
    vosDebugConfig(VOS_DEBUG_ERROR | VOS_DEBUG_TRACE);
    vosProcessInit("oltd");
    vosProcessRegTerminateProc(cleanUp);
    vosDebugPrintf(VOS_DEBUG_TRACE, "%s:process %d is %s.", __func__, vosProcessGetId(), vosProcessGetName());
    return EXIT_SUCCESS;
}
