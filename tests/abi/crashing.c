/* SPDX-License-Identifier: MIT */
/* Crashes below frames of the library, for coreDumpTest.py.
 *
 *     crashing callback|argument
 */
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "vos.h"

/* Not a null pointer, which the compiler would see. */
static volatile uintptr_t nowhere = 8;

static void crash(uint32_t late, uint64_t argument) {
    (void)argument;
    *(volatile uint32_t *)nowhere = late;
}

/* The library calls a function of ours. */
static void inACallback(void) {
    VOS_MSG_TIMER *timer;
    VOS_MSG_PEER peer;
    uint8_t byte;
    if (vosProcessInit("crashing") != VOS_OK || vosMsgInit("crashing", VOS_MSG_OPEN_LOCAL, &peer) != VOS_OK) return;
    if (vosTimerRegister(0, 0, crash, &timer, 0) != VOS_OK) return;
    vosMsgRecv(0, &byte, 1, VOS_WAIT_FOREVER, &peer);
}

/* The library uses what we gave it. */
static void onAnArgument(void) {
    vosSysConfigDataInit();
    vosSysConfigDataSet(BSP_SYS_MAC, (const void *)nowhere, 6);
}

int main(int argc, char **argv) {
    if (argc == 2 && strcmp(argv[1], "callback") == 0) inACallback();
    if (argc == 2 && strcmp(argv[1], "argument") == 0) onAnArgument();
    return EXIT_FAILURE;
}
