/* SPDX-License-Identifier: MIT */
/* What administrators ask the OLT for. */
#include <stdio.h>
#include <string.h>

#include "olt.h"

static int32_t show(const char *pRest, char *pAnswer, uint32_t ulSize) {
    (void)pRest;
    uint32_t up = 0;
    for (uint32_t i = 0; i < PORTS; ++i) up += g_stOlt.port[i].up;
    char serial[33] = "";
    vosProdSerialNoRead(serial, sizeof serial);
    snprintf(pAnswer, ulSize, "%s, serial %s, hardware %d: %u of %u ports up, %u packets, door %s", g_stOlt.name,
             serial, vosHardwareVersionGet(), up, PORTS, g_stOlt.packets, g_stOlt.doorOpen ? "open" : "closed");
    return VOS_OK;
}

static int32_t config(const char *pRest, char *pAnswer, uint32_t ulSize) {
    (void)pRest;
    return oltConfigPrint(pAnswer, ulSize) < 0 ? VOS_ERROR : VOS_OK;
}

static int32_t set(const char *pRest, char *pAnswer, uint32_t ulSize) {
    const int32_t result = oltConfigLine(pRest);
    snprintf(pAnswer, ulSize, result == VOS_OK ? "done" : "not understood: %.60s", pRest);
    return result;
}

static int32_t save(const char *pRest, char *pAnswer, uint32_t ulSize) {
    (void)pRest;
    const int32_t result = oltConfigSave();
    snprintf(pAnswer, ulSize, result == VOS_OK ? "saved" : "not saved");
    return result;
}

static const char *reasonOf(int32_t iResult) {
    switch (iResult) {
        case VOS_ERR_IMAGE_TYPE:
            return "it is of another kind";
        case VOS_ERR_IMAGE_COMPAT:
            return "it is for another device";
        case VOS_ERR_IMAGE_CRC:
            return "its checksum is wrong";
        default:
            return "it cannot be read or written";
    }
}

/* "FILE VERSION": checked, installed beside a backup of what runs now, named. */
static int32_t upgrade(const char *pRest, char *pAnswer, uint32_t ulSize) {
    char file[128];
    char version[32];
    int32_t size = 0;
    if (sscanf(pRest, "%127s %31s", file, version) != 2 || (size = vosFileSize(file)) <= 0) {
        snprintf(pAnswer, ulSize, "upgrade needs a file and a version");
        return VOS_ERR_PARAM;
    }
    uint8_t *const image = vosMalloc((uint32_t)size);
    int32_t result = VOS_ERR_MEMORY;
    if (image != NULL) result = vosFileRead(file, image, (uint32_t)size) == size ? VOS_OK : VOS_ERROR;
    if (result == VOS_OK) result = vosFileAppWrite(image, (uint32_t)size);
    if (result == VOS_OK) result = vosFileAppVerUpdate(version);
    vosFree(image);
    if (result == VOS_OK)
        snprintf(pAnswer, ulSize, "version %s is installed", version);
    else
        snprintf(pAnswer, ulSize, "the image is refused: %s", reasonOf(result));
    return result;
}

static int32_t backup(const char *pRest, char *pAnswer, uint32_t ulSize) {
    int32_t exists = 0;
    char version[513];
    (void)pRest;
    if (vosFileAppBackupVerGet(&exists, version) != VOS_OK) return VOS_ERROR;
    snprintf(pAnswer, ulSize, exists ? "the backup is version %.100s" : "there is no backup%.0s", version);
    return VOS_OK;
}

static int32_t reboot(const char *pRest, char *pAnswer, uint32_t ulSize) {
    (void)pRest;
    snprintf(pAnswer, ulSize, "rebooting");
    vosReboot(1);
    return VOS_OK;
}

static const struct {
    const char *pWord;
    int32_t (*pProc)(const char *pRest, char *pAnswer, uint32_t ulSize);
} kRequests[] = {
    {"show", show},       {"config", config}, {"set", set},       {"save", save},
    {"upgrade", upgrade}, {"backup", backup}, {"reboot", reboot},
};

int32_t oltRequest(const char *pLine, char *pAnswer, uint32_t ulSize) {
    const size_t length = strcspn(pLine, " ");
    const char *const rest = pLine + length + strspn(pLine + length, " ");
    for (size_t i = 0; i < sizeof kRequests / sizeof *kRequests; ++i)
        if (strlen(kRequests[i].pWord) == length && strncmp(kRequests[i].pWord, pLine, length) == 0)
            return kRequests[i].pProc(rest, pAnswer, ulSize);
    snprintf(pAnswer, ulSize, "no such request: %.60s", pLine);
    return VOS_ERR_PARAM;
}
