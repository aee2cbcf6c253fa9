/* SPDX-License-Identifier: MIT */
/* A program that uses the installed library. */
#include <string.h>
#include <vos.h>

int main(void) {
    vosProcessInit("consumer");
    vosDebugPrintf(VOS_DEBUG_ERROR, "%s:linked and running.", "main");
    return strcmp(vosProcessGetName(), "consumer");
}
