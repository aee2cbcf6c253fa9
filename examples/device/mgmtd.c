/* SPDX-License-Identifier: MIT */
/* The management process: administrators' sessions on thread channels, so that one session does not delay another while
 * it waits for the OLT; alarms of the OLT on the second channel; the last alarm on the main channel. */
#include <pthread.h>
#include <stdio.h>
#include <string.h>

#include "olt.h"

static char g_szLastAlarm[TEXT_LENGTH] = "none";
static VOS_SEM *g_pAlarmLock;

static void *alarms(void *pUnused) {
    char text[TEXT_LENGTH];
    VOS_MSG_PEER peer;
    (void)pUnused;
    for (;;) {
        memset(text, 0, sizeof text);
        if (vosMsgRecv2(0, text, sizeof text - 1, VOS_WAIT_FOREVER, &peer) < 0) continue;
        vosLockTake(g_pAlarmLock, VOS_WAIT_FOREVER);
        memcpy(g_szLastAlarm, text, sizeof text);
        vosLockGive(g_pAlarmLock);
        vosPrintf("\r\nmgmtd: alarm of the OLT: %s", text);
    }
    return NULL;
}

/* A session forwards requests to the OLT, and the OLT's answers to its administrator. */
static void *session(void *pSocketFd) {
    struct {
        VOS_MSG_HEAD head;
        char text[TEXT_LENGTH];
    } message;
    VOS_MSG_PEER peer;
    for (;;) {
        memset(&message, 0, sizeof message);
        const int32_t count = vosMsgThreadRecv(*(const int32_t *)pSocketFd, &message, sizeof message - 1, 0, &peer);
        if (count < 0) continue;
        uint32_t code = 0;
        const int32_t result =
            vosMsgSend(OLTD, message.text, sizeof message.text, VOS_MSG_WAIT_ANSWER, &code, TIMEOUT_MS, 0);
        if (result != VOS_OK) {
            memset(message.text, 0, sizeof message.text);
            strcpy(message.text, "the OLT does not answer");
        }
        vosMsgThreadResp(0, &message, result == VOS_OK ? code : (uint32_t)result, sizeof message.text, &peer);
    }
    return NULL;
}

static int32_t startThreads(void) {
    static int32_t socketFd[SESSIONS];
    pthread_t thread;
    for (int32_t i = 0; i < SESSIONS; ++i)
        if (vosMsgThreadInit(MGMTD, i + 1, &socketFd[i], 0) != VOS_OK ||
            pthread_create(&thread, NULL, session, &socketFd[i]) != 0)
            return VOS_ERROR;
    return pthread_create(&thread, NULL, alarms, NULL) == 0 ? VOS_OK : VOS_ERROR;
}

int main(void) {
    int32_t reserved = 0;
    char text[TEXT_LENGTH];
    VOS_MSG_PEER peer;
    szVosJournalDir = JOURNAL;
    vosInit(MGMTD);
    vosProcessInit(MGMTD);
    g_pAlarmLock = vosLockCreate();
    /* The main channel is opened first, because it makes the directory of the sockets. */
    if (g_pAlarmLock == NULL || vosMsgInit(MGMTD, VOS_MSG_OPEN_LOCAL, &reserved) != VOS_OK ||
        vosMsgInit2(MGMTD_ALARMS, VOS_MSG_OPEN_LOCAL, &reserved) != VOS_OK || startThreads() != VOS_OK)
        return 1;
    vosPrintf("\r\nmgmtd: start complete\r\n");
    for (;;) {
        if (vosMsgRecv(0, text, sizeof text, VOS_WAIT_FOREVER, &peer) < 0) continue;
        /* All bytes of the answer are set, because all of them are sent to another process. */
        vosLockTake(g_pAlarmLock, VOS_WAIT_FOREVER);
        memcpy(text, g_szLastAlarm, sizeof text);
        vosLockGive(g_pAlarmLock);
        vosMsgResp(0, VOS_OK, text, sizeof text, &peer);
    }
}
