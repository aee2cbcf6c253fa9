/* SPDX-License-Identifier: MIT */
/* A process whose messages are watched: peer NAME [TO]. It answers each message with its text. "code N" is answered
 * with that code, "slow MS" after so many milliseconds, "ask TO" when TO has answered, with the text that it got;
 * "times N" when TO has answered N requests; "tell TO" sends a message that nobody answers; "thread TO" asks in a
 * thread of its own. It prints "ready" when it can be reached. */
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <vos.h>

#define TEXT       256
#define TIMEOUT_MS 20000

static char g_szTo[64];

static int32_t ask(const char *pTo, const char *pText) {
    char text[TEXT] = "";
    uint32_t code = 0;
    snprintf(text, sizeof text, "%s", pText);
    const int32_t result = vosMsgSend(pTo, text, sizeof text, 0, &code, TIMEOUT_MS, 0);
    return result == VOS_OK ? (int32_t)code : result;
}

static void *askInThread(void *pUnused) {
    (void)pUnused;
    ask(g_szTo, "hello");
    return NULL;
}

static int32_t obey(char *pText) {
    int number = 0;
    char to[64];
    char rest[TEXT] = "hello";
    pthread_t thread;
    if (sscanf(pText, "code %d", &number) == 1) return number;
    if (sscanf(pText, "slow %d", &number) == 1) {
        const struct timespec time = {number / 1000, number % 1000 * 1000000L};
        nanosleep(&time, NULL);
    } else if (sscanf(pText, "ask %63s %200[^\n]", to, rest) >= 1) {
        return ask(to, rest);
    } else if (sscanf(pText, "times %d", &number) == 1) {
        for (int i = 0; i < number; ++i)
            if (ask(g_szTo, "hello") != 0) return -1;
    } else if (sscanf(pText, "tell %63s", to) == 1) {
        return vosMsgSend(to, rest, 6, 1, NULL, TIMEOUT_MS, 0);
    } else if (sscanf(pText, "thread %63s", g_szTo) == 1) {
        return pthread_create(&thread, NULL, askInThread, NULL);
    }
    return 0;
}

int main(int argc, char **argv) {
    static char text[TEXT];
    VOS_MSG_PEER peer;
    int32_t reserved = 0;
    if (argc < 2 || vosProcessInit(argv[1]) != VOS_OK || vosMsgInit(argv[1], 1, &reserved) != VOS_OK) return 1;
    if (argc > 2) snprintf(g_szTo, sizeof g_szTo, "%s", argv[2]);
    vosPrintf("\nready\n");
    for (;;) {
        const int32_t count = vosMsgRecv(0, text, TEXT, 0xFFFFFFFF, &peer);
        if (count < 0) continue;
        text[TEXT - 1] = '\0';
        const int32_t code = obey(text);
        char answer[TEXT] = ""; /* behind the text there may be bytes of earlier messages */
        snprintf(answer, sizeof answer, "%s", text);
        vosMsgResp(0, (uint32_t)code, answer, sizeof answer, &peer);
    }
}
