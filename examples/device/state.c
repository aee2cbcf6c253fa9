/* SPDX-License-Identifier: MIT */
/* The configuration of the OLT: in memory, as text, on flash. */
#include <stdio.h>
#include <string.h>

#include "olt.h"

struct olt g_stOlt = {.name = "olt"};

int32_t oltConfigPrint(char *pText, uint32_t ulSize) {
    int length = snprintf(pText, ulSize, "name %s\n", g_stOlt.name);
    for (uint32_t i = 0; i < PORTS && length >= 0 && (uint32_t)length < ulSize; ++i) {
        const struct port *const port = &g_stOlt.port[i];
        length +=
            snprintf(pText + length, ulSize - (uint32_t)length, "port %u %s %s\n", i + 1,
                     port->enabled ? "enable" : "disable", port->description[0] != '\0' ? port->description : "-");
    }
    return length >= 0 && (uint32_t)length < ulSize ? length : VOS_ERROR;
}

int32_t oltConfigLine(const char *pLine) {
    char word[32] = "";
    char text[32] = "";
    unsigned number = 0;
    int end = 0;
    if (sscanf(pLine, "name %31s %n", text, &end) == 1 && pLine[end] == '\0') {
        strcpy(g_stOlt.name, text);
        return VOS_OK;
    }
    end = 0;
    if (sscanf(pLine, "port %u %31s %31s %n", &number, word, text, &end) != 3 || pLine[end] != '\0')
        return VOS_ERR_PARAM;
    const bool enabled = strcmp(word, "enable") == 0;
    if (number < 1 || number > PORTS || (!enabled && strcmp(word, "disable") != 0)) return VOS_ERR_PARAM;
    g_stOlt.port[number - 1].enabled = enabled;
    strcpy(g_stOlt.port[number - 1].description, strcmp(text, "-") == 0 ? "" : text);
    return VOS_OK;
}

int32_t oltConfigLoad(void) {
    char *text = NULL;
    uint32_t length = 0;
    if (vosFileCfgRead(&text, &length) != VOS_OK) return VOS_ERROR;
    uint32_t begin = 0;
    for (uint32_t i = 0; i < length; ++i) {
        if (text[i] != '\n') continue;
        text[i] = '\0';
        if (oltConfigLine(text + begin) != VOS_OK) vosPrintf("\r\noltd: not understood: %.60s", text + begin);
        begin = i + 1;
    }
    vosFileCfgFree(text);
    return VOS_OK;
}

int32_t oltConfigSave(void) {
    char text[TEXT_LENGTH];
    const int32_t length = oltConfigPrint(text, sizeof text);
    return length < 0 ? VOS_ERROR : vosFileCfgWrite(text, (uint32_t)length);
}
