/* SPDX-License-Identifier: MIT */
/* Step 1: a process that answers under the name "greeter". */
#include <string.h>
#include <vos.h>

enum { TEXT_LENGTH = 64, HEADER_LENGTH = sizeof(VOS_MSG_HEAD) };

static char greeting[TEXT_LENGTH] = "hello";
static uint32_t greeted;

/* A message of the normal socket is counted with its header, one of the high-priority socket without. */
static int32_t payloadLength(int32_t iCount, const VOS_MSG_PEER *pPeer) {
    return pPeer->iSocketFd == g_vosFdProcHigh ? iCount : iCount - HEADER_LENGTH;
}

/* Cuts what does not fit, and fills the rest with NULs. */
static void copyText(char pTo[TEXT_LENGTH], const char *pFrom) {
    memset(pTo, 0, TEXT_LENGTH);
    memcpy(pTo, pFrom, strnlen(pFrom, TEXT_LENGTH - 1));
}

/* The answer has a fixed length, and no byte of it is left unwritten. */
static void answer(uint32_t ulCode, const char *pText, const VOS_MSG_PEER *pPeer) {
    char text[TEXT_LENGTH];
    copyText(text, pText);
    vosMsgResp(0, ulCode, text, sizeof text, pPeer);
}

static void serve(const char *pText, const VOS_MSG_PEER *pPeer) {
    (void)pText;
    ++greeted;
    answer(greeted, greeting, pPeer);
}

int main(void) {
    char text[TEXT_LENGTH + HEADER_LENGTH + 1]; /* the header's 32 bytes more, so that the length is known; and a NUL */
    VOS_MSG_PEER peer;
    vosProcessInit("greeter");
    if (vosMsgInit("greeter", VOS_MSG_OPEN_LOCAL, &peer) != VOS_OK) return 1;
    for (;;) {
        const int32_t count = vosMsgRecv(0, text, sizeof text - 1, VOS_WAIT_FOREVER, &peer);
        if (count < 0) continue;
        const int32_t length = payloadLength(count, &peer);
        if (length < 0 || length > TEXT_LENGTH) continue;
        text[length] = '\0';
        serve(text, &peer);
    }
}
