/* SPDX-License-Identifier: MIT */
/* A program of somebody who has installed the library. */
#include <string.h>
#include <vos.h>

int main(void) {
    vosProcessInit("consumer");
    vosDebugPrintf(VOS_DEBUG_ERROR, "%s:linked and running.", "main");
    return strcmp(vosProcessGetName(), "consumer");
}
