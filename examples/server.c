/* SPDX-License-Identifier: MIT */
/* A server: it answers a greeting, works, counts how often it has worked, and builds its running configuration. */
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <vos.h>

static uint32_t worked;

/* The configuration is text. *pLen is the size of the buffer, and then the number of bytes that are still free. */
static int32_t printConfig(char *pBuf, int32_t *pLen, uint32_t ulValue1, uint32_t ulValue2) {
    (void)ulValue1;
    (void)ulValue2;
    const int length = snprintf(pBuf, (size_t)*pLen, "name server\nworked %u\n", worked);
    if (length < 0 || length >= *pLen) return VOS_ERROR;
    *pLen -= length;
    return VOS_OK;
}

/* Work that takes a tenth of a second. */
static void work(void) {
    const struct timespec tenth = {0, 100000000}; /* nanoseconds */
    nanosleep(&tenth, NULL);
    ++worked;
}

int main(void) {
    char text[64];
    VOS_MSG_PEER peer;
    vosProcessInit("server");
    if (vosMsgInit("server", VOS_MSG_OPEN_LOCAL, &peer) != VOS_OK) return 1;
    vosMsgRegisterBldrun(printConfig);
    for (;;) {
        memset(text, 0, sizeof text);
        if (vosMsgRecv(0, text, sizeof text, VOS_WAIT_FOREVER, &peer) < 0) continue;
        if (strncmp(text, "stop", sizeof text) == 0) return 0;
        if (strncmp(text, "work", sizeof text) == 0) work();
        vosMsgResp(0, worked, "hello", 6, &peer); /* nothing is sent to a requester that wants no answer */
    }
}
