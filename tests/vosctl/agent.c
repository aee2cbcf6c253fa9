/* SPDX-License-Identifier: MIT */
/* A process that the tests of vosctl use: agent NAME [MODE]. Modes: mute (never receives), plain (no handlers), silent
 * (receives and does not answer). Messages to thread channel 3 are answered with "thread". It prints "ready" when it
 * can be reached. */
#include <errno.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>
#include <vos.h>

static int32_t printConfig(char *pBuf, int32_t *pLen, uint32_t ulValue1, uint32_t ulValue2) {
    if (ulValue1 == 42) return 42;
    if (ulValue1 == 43) { /* not UTF-8, and with control characters */
        memcpy(pBuf, "pw \xff\xfe\x1b[m", 8);
        *pLen -= 8;
        return VOS_OK;
    }
    const int length = snprintf(pBuf, (size_t)*pLen, "first %u\nsecond %u\n", ulValue1, ulValue2);
    *pLen -= length;
    return VOS_OK;
}

/* The object "full" uses all 32 words of the table, others 3; "none" is not there. */
static int32_t describe(char *pName, uint32_t ulValue1, uint32_t *pOut1, uint32_t *pOut2, uint32_t *pOut3,
                        uint32_t *pOut4, uint32_t *pOut5, uint32_t *pOut6, uint32_t *pTable, uint32_t *pCount,
                        uint32_t *pOut8, uint32_t *pOut9, uint32_t *pOut10) {
    if (strcmp(pName, "none") == 0) {
        errno = ENOENT;
        return -7;
    }
    *pOut1 = ulValue1;
    *pOut2 = 2, *pOut3 = 3, *pOut4 = 4, *pOut5 = 5, *pOut6 = 6, *pOut8 = 8, *pOut9 = 9, *pOut10 = 10;
    *pCount = strcmp(pName, "full") == 0 ? 32 : 3;
    for (uint32_t index = 0; index < *pCount; ++index) pTable[index] = 100 + index;
    return VOS_OK;
}

/* Application messages: "words" is answered with the debug words, "stop" ends, others come back with code -3;
 * "say" prints a line without its end before. */
static void serve(int silent) {
    static char text[64568];
    VOS_MSG_PEER peer;
    for (;;) {
        const int32_t count = vosMsgRecv(0, text, sizeof text, 0xFFFFFFFF, &peer);
        const int32_t length = peer.iSocketFd == g_vosFdProcHigh ? count : count - 32;
        if (count < 0 || silent) continue;
        if (strncmp(text, "stop", 4) == 0) return;
        if (strncmp(text, "say", 3) == 0) vosPrintf("\r\nsaid");
        if (strncmp(text, "words", 5) == 0) {
            char words[64];
            snprintf(words, sizeof words, "%u %u", g_ulVosDebugFlags, vosMsgDebugSmdGet());
            vosMsgResp(0, 0, words, (uint32_t)strlen(words) + 1, &peer);
        } else {
            vosMsgResp(0, (uint32_t)-3, text, (uint32_t)length, &peer);
        }
    }
}

static void *serveThread(void *pSocket) {
    static char buffer[64600] __attribute__((aligned(8)));
    static const char answer[32 + 6] = {[32] = 't', 'h', 'r', 'e', 'a', 'd'}; /* behind the header's bytes */
    VOS_MSG_PEER peer;
    for (;;)
        if (vosMsgThreadRecv(*(int32_t *)pSocket, buffer, sizeof buffer, 0, &peer) >= 0)
            vosMsgThreadResp(0, memcpy(buffer, answer, sizeof answer), 5, 6, &peer);
    return NULL;
}

int main(int argc, char **argv) {
    const char *const name = argc > 1 ? argv[1] : "agent";
    const char *const mode = argc > 2 ? argv[2] : "";
    static int32_t sockets[3];
    pthread_t thread;
    VOS_MSG_PEER peer;
    if (vosProcessInit(name) != VOS_OK || vosMsgInit(name, 1, &peer) != VOS_OK) return 1;
    if (strcmp(mode, "plain") != 0) {
        vosMsgRegisterBldrun(printConfig);
        vosMsgRegisterCcdObjInfoGet(describe);
    }
    if (vosMsgThreadInit(name, 3, &sockets[0], 0) != VOS_OK || vosMsgThreadInit(name, 3, &sockets[1], 1) != VOS_OK ||
        vosMsgThreadInit(name, 12, &sockets[2], 0) != VOS_OK)
        return 1;
    if (strcmp(mode, "mute") != 0 && pthread_create(&thread, NULL, serveThread, &sockets[0]) != 0) return 1;
    vosPrintf("\nready\n");
    while (strcmp(mode, "mute") == 0) pause();
    serve(strcmp(mode, "silent") == 0);
    return 0;
}
