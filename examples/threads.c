/* SPDX-License-Identifier: MIT */
/* One process with four loops: its main channel, a second channel, and two thread channels. One more thread sends a
 * request to each. */
#include <pthread.h>
#include <stdio.h>
#include <vos.h>

/* Each loop answers one request with a different number. The buffer of a thread has space for the header and the
 * payload, and is aligned to 8 bytes. */
static void *threadLoop(void *pSocketFd) {
    _Alignas(8) char message[sizeof(VOS_MSG_HEAD) + 8];
    VOS_MSG_PEER peer;
    if (vosMsgThreadRecv(*(int32_t *)pSocketFd, message, sizeof message, 0, &peer) >= 0)
        vosMsgThreadResp(0, message, 30, 0, &peer);
    return NULL;
}

static void *secondLoop(void *pUnused) {
    char text[8];
    VOS_MSG_PEER peer;
    (void)pUnused;
    if (vosMsgRecv2(0, text, sizeof text, VOS_WAIT_FOREVER, &peer) >= 0) vosMsgResp2(0, 20, text, 0, &peer);
    return NULL;
}

/* Sends a request to each of the four. Returns the sum of their answers. */
static void *askAll(void *pSum) {
    char text[1] = "";
    uint32_t code[4] = {0};
    vosMsgSend("threads", text, 0, VOS_MSG_WAIT_ANSWER, &code[0], 3000, 0);
    vosMsgSend("threads-second", text, 0, VOS_MSG_WAIT_ANSWER, &code[1], 3000, 0);
    vosMsgThreadSend("threads", 1, text, 0, VOS_MSG_WAIT_ANSWER, &code[2], 3000, 0);
    vosMsgThreadSend("threads", 2, text, 0, VOS_MSG_WAIT_ANSWER, &code[3], 3000, 0);
    printf("\nthreads: main loop %u, second loop %u, thread channels %u and %u\n", code[0], code[1], code[2], code[3]);
    *(uint32_t *)pSum = code[0] + code[1] + code[2] + code[3];
    return NULL;
}

int main(void) {
    char text[8];
    VOS_MSG_PEER peer;
    int32_t sockets[2];
    uint32_t sum = 0;
    pthread_t loops[4];
    vosProcessInit("threads");
    if (vosMsgInit("threads", VOS_MSG_OPEN_LOCAL, &peer) != VOS_OK ||
        vosMsgInit2("threads-second", VOS_MSG_OPEN_LOCAL, &peer) != VOS_OK ||
        vosMsgThreadInit("threads", 1, &sockets[0], 0) != VOS_OK ||
        vosMsgThreadInit("threads", 2, &sockets[1], 0) != VOS_OK)
        return 1;
    pthread_create(&loops[0], NULL, secondLoop, NULL);
    pthread_create(&loops[1], NULL, threadLoop, &sockets[0]);
    pthread_create(&loops[2], NULL, threadLoop, &sockets[1]);
    pthread_create(&loops[3], NULL, askAll, &sum);
    if (vosMsgRecv(0, text, sizeof text, VOS_WAIT_FOREVER, &peer) >= 0) vosMsgResp(0, 10, text, 0, &peer);
    for (int i = 0; i < 4; ++i) pthread_join(loops[i], NULL);
    return sum == 10 + 20 + 30 + 30 ? 0 : 1;
}
