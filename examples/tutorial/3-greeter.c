/* SPDX-License-Identifier: MIT */
/* Step 3: the greeting is kept on flash, and other processes can request the running configuration. */
#include <stdio.h>
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

/* The saved configuration is the greeting. Without one, at the first start, the greeting stays "hello". */
static void load(void) {
    char *pSaved;
    uint32_t length;
    if (vosFileCfgRead(&pSaved, &length) != VOS_OK) return;
    memset(greeting, 0, sizeof greeting);
    memcpy(greeting, pSaved, length < TEXT_LENGTH ? length : TEXT_LENGTH - 1);
    vosFileCfgFree(pSaved);
}

static int32_t save(const char *pText) {
    copyText(greeting, pText);
    return vosFileCfgWrite(greeting, (uint32_t)strlen(greeting));
}

/* Builds the running configuration: the text goes into pBuf, and *pLen becomes what is still free there. */
static int32_t build(char *pBuf, int32_t *pLen, uint32_t ulValue1, uint32_t ulValue2) {
    (void)ulValue1;
    (void)ulValue2;
    const int length = snprintf(pBuf, (size_t)*pLen, "greeting %s\n", greeting);
    if (length < 0 || length >= *pLen) return VOS_ERROR;
    *pLen -= length;
    return VOS_OK;
}

static void serve(const char *pText, const VOS_MSG_PEER *pPeer) {
    if (strncmp(pText, "set ", 4) == 0) {
        answer((uint32_t)save(pText + 4), greeting, pPeer);
        return;
    }
    ++greeted;
    answer(greeted, greeting, pPeer);
}

/* Called by vosMsgRecv(), in the thread that runs it. */
static void tell(uint32_t ulLateMs, uint64_t ulUserArg) {
    static uint32_t told;
    (void)ulLateMs;
    (void)ulUserArg;
    if (told == greeted) return;
    told = greeted;
    vosPrintf("\r\ngreeted %u\r\n", told);
}

int main(void) {
    char text[TEXT_LENGTH + HEADER_LENGTH + 1]; /* the header's 32 bytes more, so that the length is known; and a NUL */
    VOS_MSG_PEER peer;
    vosProcessInit("greeter");
    if (vosMsgInit("greeter", VOS_MSG_OPEN_LOCAL, &peer) != VOS_OK) return 1;
    load();
    vosMsgRegisterBldrun(build);
    VOS_MSG_TIMER *pTimer;
    if (vosTimerRegister(1, 1000, tell, &pTimer, 0) != VOS_OK) return 1;
    for (;;) {
        const int32_t count = vosMsgRecv(0, text, sizeof text - 1, VOS_WAIT_FOREVER, &peer);
        if (count < 0) continue;
        const int32_t length = payloadLength(count, &peer);
        if (length < 0 || length > TEXT_LENGTH) continue;
        text[length] = '\0';
        serve(text, &peer);
    }
}
