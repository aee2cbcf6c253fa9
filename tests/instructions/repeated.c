/* SPDX-License-Identifier: MIT */
/* Makes one call of the library a number of times, for instructionsTest.py, which counts its instructions.
 *
 *     repeated WHAT COUNT
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>

#include "vos.h"

#define SERVER "counted"
enum { PAYLOAD = 64, ANSWER = 7, IDLE_TIMERS = 100 };

static long left;

/* The library calls this one. Its arithmetic with the real time of day takes more or fewer instructions, by the moment.
 */
int gettimeofday(struct timeval *restrict now, void *restrict zone) {
    (void)zone;
    *now = (struct timeval){.tv_sec = 1000000000, .tv_usec = 500000};
    return 0;
}

static void expect(int holds, const char *what) {
    if (holds) return;
    fprintf(stderr, "repeated: %s\n", what);
    exit(EXIT_FAILURE);
}

static void request(long count) {
    uint8_t payload[PAYLOAD] = {0};
    expect(vosProcessInit("counting") == VOS_OK, "vosProcessInit failed");
    for (; count > 0; --count) {
        uint32_t code = 0;
        expect(vosMsgSend(SERVER, payload, sizeof payload, 0, &code, 60000, 0) == VOS_OK && code == ANSWER,
               "no answer");
    }
}

static void openChannel(void) {
    VOS_MSG_PEER reserved;
    expect(vosProcessInit(SERVER) == VOS_OK, "vosProcessInit failed");
    expect(vosMsgInit(SERVER, VOS_MSG_OPEN_LOCAL, &reserved) == VOS_OK, "vosMsgInit failed");
}

static void serve(long count) {
    static uint8_t message[PAYLOAD + sizeof(VOS_MSG_HEAD)];
    openChannel();
    puts("ready");
    fflush(stdout);
    for (; count > 0; --count) {
        VOS_MSG_PEER peer;
        expect(vosMsgRecv(0, message, sizeof message, VOS_WAIT_FOREVER, &peer) >= 0, "no request");
        expect(vosMsgResp(0, ANSWER, message, PAYLOAD, &peer) == VOS_OK, "vosMsgResp failed");
    }
}

/* One pass of the loop, in which no timer is due. */
static void idleTimers(long count) {
    VOS_MSG_TIMER *timer;
    VOS_MSG_PEER peer;
    uint8_t byte;
    openChannel();
    for (int each = 0; each < IDLE_TIMERS; ++each)
        expect(vosTimerRegister(1, 3600000, NULL, &timer, 0) == VOS_OK, "vosTimerRegister failed");
    for (; count > 0; --count) expect(vosMsgRecv(0, &byte, 1, VOS_NO_WAIT, &peer) == VOS_ERR_TIMEOUT, "a message came");
}

static void expired(uint32_t late, uint64_t argument) {
    (void)late, (void)argument;
    if (--left == 0) exit(EXIT_SUCCESS);
}

/* A timer whose interval is 0 is due in each pass. */
static void dueTimer(long count) {
    VOS_MSG_TIMER *timer;
    VOS_MSG_PEER peer;
    uint8_t byte;
    openChannel();
    left = count;
    expect(vosTimerRegister(1, 0, expired, &timer, 0) == VOS_OK, "vosTimerRegister failed");
    vosMsgRecv(0, &byte, 1, VOS_WAIT_FOREVER, &peer);
    expect(0, "the loop ended");
}

static void filteredLine(long count) {
    for (; count > 0; --count) vosDebugPrintf(VOS_DEBUG_TRACE, "%s:return %d.", __func__, 7);
}

static void printedLine(long count) {
    for (; count > 0; --count)
        expect(vosDebugPrintf(VOS_DEBUG_ERROR, "%s:return %d.", __func__, 7) > 0, "nothing printed");
}

/* The partitions do not exist yet, and the first call that needs one makes it. */
static void get(long count) {
    uint32_t address = 0;
    vosSysConfigDataInit();
    for (; count > 0; --count)
        expect(vosSysConfigDataGet(BSP_IP_ADDRESS, &address, sizeof address) == VOS_OK, "vosSysConfigDataGet failed");
}

static void set(long count) {
    const uint32_t address = 0x01020304;
    vosSysConfigDataInit();
    for (; count > 0; --count)
        expect(vosSysConfigDataSet(BSP_IP_ADDRESS, &address, sizeof address) == VOS_OK, "vosSysConfigDataSet failed");
}

static const struct {
    const char *name;
    void (*repeat)(long count);
} all[] = {
    {"request", request},
    {"serve", serve},
    {"idle-timers", idleTimers},
    {"due-timer", dueTimer},
    {"filtered-line", filteredLine},
    {"printed-line", printedLine},
    {"get", get},
    {"set", set},
};

int main(int argc, char **argv) {
    for (size_t i = 0; argc == 3 && i < sizeof all / sizeof all[0]; ++i) {
        if (strcmp(argv[1], all[i].name) != 0) continue;
        all[i].repeat(strtol(argv[2], NULL, 10));
        return EXIT_SUCCESS;
    }
    fprintf(stderr, "usage: repeated WHAT COUNT\n");
    return 2;
}
