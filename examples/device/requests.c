/* SPDX-License-Identifier: MIT */
/* The requests of administrators. */
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

/* The whole file, in a block that the caller releases with vosFree(); null when it cannot be read. */
static uint8_t *load(const char *pFile, uint32_t *pSize) {
    const int32_t size = vosFileSize(pFile);
    uint8_t *const content = size > 0 ? vosMalloc((uint32_t)size) : NULL;
    if (content == NULL) return NULL;
    *pSize = (uint32_t)size;
    if (vosFileRead(pFile, content, *pSize) == size) return content;
    vosFree(content);
    return NULL;
}

static int32_t tellInstalled(int32_t iResult, const char *pWhat, char *pAnswer, uint32_t ulSize) {
    if (iResult == VOS_OK)
        snprintf(pAnswer, ulSize, "%s is installed", pWhat);
    else
        snprintf(pAnswer, ulSize, "the image is refused: %s", reasonOf(iResult));
    return iResult;
}

/* "FILE VERSION": the image is checked, the installed application is backed up, the image and its version are
 * installed. */
static int32_t upgrade(const char *pRest, char *pAnswer, uint32_t ulSize) {
    char file[128];
    char version[32];
    uint32_t size = 0;
    uint8_t *image = NULL;
    if (sscanf(pRest, "%127s %31s", file, version) != 2 || (image = load(file, &size)) == NULL) {
        snprintf(pAnswer, ulSize, "upgrade needs a file and a version");
        return VOS_ERR_PARAM;
    }
    int32_t result = vosFileAppWrite(image, size);
    if (result == VOS_OK) result = vosFileAppVerUpdate(version);
    vosFree(image);
    return tellInstalled(result, version, pAnswer, ulSize);
}

/* "FILE": the image is checked and written over the boot loader. */
static int32_t bootLoader(const char *pRest, char *pAnswer, uint32_t ulSize) {
    uint32_t size = 0;
    uint8_t *const image = load(pRest, &size);
    if (image == NULL) {
        snprintf(pAnswer, ulSize, "bootloader needs a file");
        return VOS_ERR_PARAM;
    }
    const int32_t result = vosFileBootWrite(image, size);
    vosFree(image);
    return tellInstalled(result, "the boot loader", pAnswer, ulSize);
}

static int32_t backup(const char *pRest, char *pAnswer, uint32_t ulSize) {
    int32_t exists = 0;
    char version[513];
    (void)pRest;
    if (vosFileAppBackupVerGet(&exists, version) != VOS_OK) return VOS_ERROR;
    snprintf(pAnswer, ulSize, exists ? "the backup is version %.100s" : "there is no backup%.0s", version);
    return VOS_OK;
}

/* Measures the light of each port, and nobody else is served meanwhile. */
static int32_t selfTest(const char *pRest, char *pAnswer, uint32_t ulSize) {
    (void)pRest;
    for (uint32_t i = 0; i < PORTS; ++i) vosUSleep(50000);
    snprintf(pAnswer, ulSize, "%u ports tested", PORTS);
    return VOS_OK;
}

/* A mistake, to be found: the OLT asks a session of mgmtd, which asks the OLT, which waits. */
static int32_t audit(const char *pRest, char *pAnswer, uint32_t ulSize) {
    char text[TEXT_LENGTH] = "show";
    uint32_t code = 0;
    (void)pRest;
    const int32_t result =
        vosMsgThreadSend(MGMTD, AUDIT_SESSION, text, sizeof text, VOS_MSG_WAIT_ANSWER, &code, TIMEOUT_MS - 1000, 0);
    snprintf(pAnswer, ulSize, result == VOS_OK ? "audited" : "the audit got no answer");
    return result;
}

static int32_t reboot(const char *pRest, char *pAnswer, uint32_t ulSize) {
    (void)pRest;
    snprintf(pAnswer, ulSize, "rebooting");
    vosReboot(VOS_REBOOT_NOW);
    return VOS_OK;
}

static const struct {
    const char *pWord;
    int32_t (*pProc)(const char *pRest, char *pAnswer, uint32_t ulSize);
} kRequests[] = {
    {"show", show},         {"config", config},         {"set", set},       {"save", save},
    {"upgrade", upgrade},   {"bootloader", bootLoader}, {"backup", backup}, {"reboot", reboot},
    {"selftest", selfTest}, {"audit", audit},
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
