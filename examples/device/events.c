/* SPDX-License-Identifier: MIT */
/* Events: packets and link changes of the kernel, requests of other processes, the contact of the cabinet's door, a
 * timer. */
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "olt.h"

void oltAlarm(const char *pText) {
    char text[TEXT_LENGTH];
    snprintf(text, sizeof text, "%s", pText);
    vosPrintf("\r\noltd: alarm: %s", text);
    /* mgmtd need not run: this request asks for no answer, and a failure is not logged. */
    const uint32_t flags = g_ulVosDebugFlags;
    vosDebugConfig(0);
    vosMsgSend(MGMTD_ALARMS, text, (uint32_t)strlen(text) + 1, VOS_MSG_NO_ANSWER, NULL, 100, 0);
    vosDebugConfig(flags);
}

static int32_t packetTrapped(uint8_t *pData, int32_t iLen, VOS_PKT_INFO stInfo, VOS_PKT_EXT stExt) {
    (void)stInfo;
    (void)stExt;
    ++g_stOlt.packets;
    vosPrintf("\r\noltd: packet %u of %d bytes, first 0x%02X", g_stOlt.packets, iLen, iLen > 0 ? pData[0] : 0);
    return VOS_OK;
}

/* ulPort is the number of a port, from 1; ulUp is 1 for up and 0 for down. */
static int32_t linkChanged(uint32_t ulPort, uint32_t ulUp) {
    char text[80];
    if (ulPort < 1 || ulPort > PORTS) return VOS_ERR_PARAM;
    struct port *const port = &g_stOlt.port[ulPort - 1];
    port->up = ulUp != 0;
    ++port->changes;
    snprintf(text, sizeof text, "port %u %s", ulPort, port->up ? "up" : "down");
    oltAlarm(text);
    return VOS_OK;
}

static int32_t printConfig(char *pBuf, int32_t *pLen, uint32_t ulValue1, uint32_t ulValue2) {
    (void)ulValue1;
    (void)ulValue2;
    if (*pLen <= 0) return VOS_ERROR;
    const int32_t length = oltConfigPrint(pBuf, (uint32_t)*pLen);
    if (length < 0) return VOS_ERROR;
    *pLen -= length; /* the number of bytes that are still free */
    return VOS_OK;
}

/* The object "portLinkChanges" has one index word, the port's number. */
#define OBJECT "portLinkChanges"

static int32_t readObject(uint32_t ulOperation, char *pName, uint32_t *pIndexes, int32_t *pIndexNum, void *pValueBuf,
                          uint32_t *pValueLen, uint16_t *pusValue) {
    (void)ulOperation;
    (void)pusValue;
    if (strcmp(pName, OBJECT) != 0 || *pIndexNum != 1 || pIndexes[0] < 1 || pIndexes[0] > PORTS) return VOS_ERR_PARAM;
    const uint32_t changes = g_stOlt.port[pIndexes[0] - 1].changes;
    if (*pValueLen < sizeof changes) return VOS_ERR_PARAM;
    memcpy(pValueBuf, &changes, sizeof changes);
    *pValueLen = sizeof changes;
    return VOS_OK;
}

/* Output 1 is the kind (1: a counter), output 2 the size of a value; the table holds the ports' numbers. */
static int32_t describeObject(char *pName, uint32_t ulValue1, uint32_t *pOut1, uint32_t *pOut2, uint32_t *pOut3,
                              uint32_t *pOut4, uint32_t *pOut5, uint32_t *pOut6, uint32_t *pTable, uint32_t *pCount,
                              uint32_t *pOut8, uint32_t *pOut9, uint32_t *pOut10) {
    (void)ulValue1;
    if (strcmp(pName, OBJECT) != 0) return VOS_ERR_PARAM;
    *pOut1 = 1;
    *pOut2 = sizeof(uint32_t);
    *pOut3 = *pOut4 = *pOut5 = *pOut6 = *pOut8 = *pOut9 = *pOut10 = 0;
    for (uint32_t i = 0; i < PORTS; ++i) pTable[i] = i + 1;
    *pCount = PORTS;
    return VOS_OK;
}

static void tick(uint32_t ulLateMs, uint64_t ulUserArg) {
    (void)ulLateMs;
    (void)ulUserArg;
    ++g_stOlt.ticks;
}

static int32_t doorMoved(int32_t iFd, void *pArg) {
    char moves[16];
    (void)pArg;
    const ssize_t count = read(iFd, moves, sizeof moves);
    for (ssize_t i = 0; i < count; ++i) {
        if (moves[i] != '0' && moves[i] != '1') continue;
        g_stOlt.doorOpen = moves[i] == '1';
        oltAlarm(g_stOlt.doorOpen ? "door open" : "door closed");
    }
    return VOS_OK;
}

/* The contact is a FIFO that another program writes to. It is opened for writing, too, so that it has no end of file.
 */
static int32_t doorInit(void) {
    unlink(DOOR_PATH);
    if (mkfifo(DOOR_PATH, 0600) != 0) return VOS_ERROR;
    const int fd = open(DOOR_PATH, O_RDWR | O_NONBLOCK | O_CLOEXEC);
    return fd < 0 ? VOS_ERROR : vosMsgSockAdd(fd, doorMoved, NULL);
}

int32_t oltEventsInit(void) {
    VOS_MSG_TIMER *timer = NULL;
    vosMsgRegisterPkt(packetTrapped);
    vosMsgRegisterPortLink(0, linkChanged);
    vosMsgRegisterBldrun(printConfig);
    vosMsgRegisterCcd(readObject);
    vosMsgRegisterCcdObjInfoGet(describeObject);
    if (vosTimerRegister(1, 100, tick, &timer, 0) != VOS_OK) return VOS_ERROR;
    return doorInit();
}
