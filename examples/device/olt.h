/* SPDX-License-Identifier: MIT */
/* A small optical line terminal: the declarations that its processes share. */
#ifndef OLT_H
#define OLT_H

#include <stdbool.h>
#include <stdint.h>
#include <vos.h>

#define OLTD         "oltd"         /* the ports, the configuration, the software */
#define MGMTD        "mgmtd"        /* sessions of administrators: thread channels 1 to SESSIONS */
#define MGMTD_ALARMS "mgmtd-alarms" /* its second channel: the alarms of the OLT */

#define SESSIONS      2
#define AUDIT_SESSION SESSIONS
#define TEXT_LENGTH   1024 /* of a request and of its answer: a text, and NULs up to this length */
#define TIMEOUT_MS    5000

/* Every program of the device has the same journal, the tool as well: vosctl --journal. */
#define JOURNAL "/flash/journal"

#define DOOR_PATH "/tmp/olt-door" /* the contact of the cabinet's door: bytes '1' open and '0' closed */

/* ---- The state of the OLT (state.c) ---- */

#define PORTS 4

struct port {
    bool enabled;         /* as configured */
    bool up;              /* as the hardware reports */
    char description[32]; /* without blanks */
    uint32_t changes;     /* of the link */
};

struct olt {
    char name[32];
    struct port port[PORTS];
    uint32_t packets; /* trapped by the kernel */
    uint32_t ticks;   /* of the loop timer */
    bool doorOpen;
};

extern struct olt g_stOlt;

/* Writes the configuration as text. Returns its length, or VOS_ERROR when it does not fit. */
int32_t oltConfigPrint(char *pText, uint32_t ulSize);
/* Applies a line of configuration. A line that is not understood gives VOS_ERR_PARAM and changes nothing. */
int32_t oltConfigLine(const char *pLine);
/* Applies the configuration on flash. VOS_ERROR when there is none. */
int32_t oltConfigLoad(void);
int32_t oltConfigSave(void);

/* ---- Requests of administrators (requests.c) ---- */

/* Executes a request, which is a line of text. The answer is text, too. Returns the code of the answer. */
int32_t oltRequest(const char *pLine, char *pAnswer, uint32_t ulSize);

/* ---- Events (events.c) ---- */

/* Registers handlers for packets and link changes of the kernel, for requests about objects and the configuration, and
 * for the contact of the door, and a timer. */
int32_t oltEventsInit(void);
/* Sends a text to mgmtd, if it runs, and writes it to the log. */
void oltAlarm(const char *pText);

#endif
