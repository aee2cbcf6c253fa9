/* SPDX-License-Identifier: MIT */
/* The OLT's main process: the start-up of every application process, then the receive loop. */
#include <unistd.h>

#include "olt.h"

/* Runs inside a signal handler, so it makes only calls that are allowed there. */
static void terminate(int32_t iReserved) {
    static const char kText[] = "\r\noltd: ends\r\n";
    (void)iReserved;
    unlink(DOOR_PATH);
    if (write(STDOUT_FILENO, kText, sizeof kText - 1) < 0) _exit(1);
    _exit(0);
}

static int32_t start(void) {
    int32_t reserved = 0;
    szVosJournalDir = JOURNAL;
    vosInit(OLTD);
    vosProcessInit(OLTD);
    vosProcessRegTerminateProc(terminate);
    if (vosMsgInit(OLTD, VOS_MSG_OPEN_LOCAL, &reserved) != VOS_OK || oltEventsInit() != VOS_OK) return VOS_ERROR;
    if (vosMsgInit(OLTD, VOS_MSG_OPEN_NETLINK, &reserved) != VOS_OK)
        vosPrintf("\r\noltd: no packets and links: no kernel module");
    vosPrintf(oltConfigLoad() == VOS_OK ? "\r\noltd: configured from flash" : "\r\noltd: no configuration on flash");
    uint32_t warm = 0;
    vosStartTypeGet(&warm);
    vosPrintf("\r\noltd: %s start complete\r\n", warm ? "warm" : "cold");
    return VOS_OK;
}

/* The payload of a request. On the normal socket a message's length includes its header. */
static void serve(char *pText, int32_t iLen, VOS_MSG_PEER *pPeer) {
    char answer[TEXT_LENGTH] = "";
    int32_t length = iLen - (pPeer->iSocketFd == g_vosFdProc ? (int32_t)sizeof(VOS_MSG_HEAD) : 0);
    if (length < 0) return;
    if (length >= TEXT_LENGTH) length = TEXT_LENGTH - 1;
    pText[length] = '\0';
    const int32_t result = oltRequest(pText, answer, sizeof answer);
    vosMsgResp(0, (uint32_t)result, answer, sizeof answer,
               pPeer); /* the whole buffer, which is as long as that of the requester */
}

int main(void) {
    static char text[TEXT_LENGTH + sizeof(VOS_MSG_HEAD)];
    VOS_MSG_PEER peer;
    if (start() != VOS_OK) return 1;
    for (;;) {
        const int32_t count = vosMsgRecv(0, text, TEXT_LENGTH, VOS_WAIT_FOREVER, &peer);
        if (count >= 0) serve(text, count, &peer);
    }
}
