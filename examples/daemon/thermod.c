/* SPDX-License-Identifier: MIT */
/* A thermostat: it keeps a limit on flash, and asks the process "sensord" for the temperature.
 *
 *     "limit"      the answer's code is the limit
 *     "limit 30"   saves another one: VOS_OK, or VOS_ERROR and the limit is the old one
 *     "state"      the text is "cool" or "hot"; VOS_ERR_TIMEOUT and "unknown" when the sensor does not tell
 *     "stop"       ends the daemon
 *
 * A question and its answer have 32 bytes, and so have those of the sensor: text, and zeros behind it. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vos.h>

enum { MESSAGE = 32 };

static const char *const path = "/flash/limit";
static const char *const newPath = "/flash/limit.new";
static int limit = 20;

static void load(void) {
    char text[16] = "";
    if (vosFileExist(path) && vosFileRead(path, text, sizeof text - 1) > 0) limit = atoi(text);
}

/* A cut at any moment leaves the old file or the new one. */
static int32_t save(int value) {
    char text[16];
    const int length = snprintf(text, sizeof text, "%d", value);
    if (vosFileWrite(newPath, text, (uint32_t)length) != VOS_OK || rename(newPath, path) != 0) return VOS_ERROR;
    limit = value;
    return VOS_OK;
}

static int32_t state(char *answer) {
    char text[MESSAGE] = "now";
    uint32_t temperature = 0;
    strcpy(answer, "unknown");
    if (vosMsgSend("sensord", text, sizeof text, VOS_MSG_WAIT_ANSWER, &temperature, 500, 0) != VOS_OK ||
        strncmp(text, "celsius", sizeof text) != 0)
        return VOS_ERR_TIMEOUT;
    strcpy(answer, (int32_t)temperature > limit ? "hot" : "cool");
    return VOS_OK;
}

int main(void) {
    char text[MESSAGE + 1];
    char answer[MESSAGE];
    VOS_MSG_PEER peer;
    vosProcessInit("thermod");
    if (vosMsgInit("thermod", VOS_MSG_OPEN_LOCAL, &peer) != VOS_OK) return 1;
    load();
    for (int stopped = 0; !stopped;) {
        memset(text, 0, sizeof text);
        if (vosMsgRecv(0, text, sizeof text - 1, VOS_WAIT_FOREVER, &peer) < 0) continue;
        int32_t code = VOS_ERR_PARAM;
        int value = 0;
        char more = 0;
        memset(answer, 0, sizeof answer);
        if (strcmp(text, "limit") == 0) code = limit;
        if (sscanf(text, "limit %d%c", &value, &more) == 1) code = save(value);
        if (strcmp(text, "state") == 0) code = state(answer);
        stopped = strcmp(text, "stop") == 0;
        if (stopped) code = VOS_OK;
        vosMsgResp(0, (uint32_t)code, answer, sizeof answer, &peer);
    }
    return 0;
}
