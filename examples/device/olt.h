/* SPDX-License-Identifier: MIT */
/* An optical line terminal in miniature: what its processes share. */
#ifndef OLT_H
#define OLT_H

#include <stdbool.h>
#include <stdint.h>
#include <vos.h>

#define OLTD         "oltd"         /* the ports, the configuration, the software */
#define MGMTD        "mgmtd"        /* sessions of administrators: thread channels 1 to SESSIONS */
#define MGMTD_ALARMS "mgmtd-alarms" /* its second channel: what the OLT reports by itself */

#define SESSIONS    2
#define TEXT_LENGTH 1024 /* of a request's text and of its answer's: NULs follow the text */
#define TIMEOUT_MS  5000

#define DOOR_PATH "/tmp/olt-door" /* the contact of the cabinet's door: bytes '1' open and '0' closed */

/* ---- The state of the OLT (state.c) ---- */

#define PORTS 4

struct port {
    bool enabled;         /* by configuration */
    bool up;              /* as the hardware says */
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

/* Writes the configuration as text; its length, or -1 when it does not fit. */
int32_t oltConfigPrint(char *pText, uint32_t ulSize);
/* Applies a line of configuration. What does not make sense is VOS_ERR_PARAM and changes nothing. */
int32_t oltConfigLine(const char *pLine);
/* Applies the configuration on flash. VOS_ERROR when there is none. */
int32_t oltConfigLoad(void);
int32_t oltConfigSave(void);

/* ---- Requests of administrators (requests.c) ---- */

/* Carries out a line of text; the answer is text, the result its code. */
int32_t oltRequest(const char *pLine, char *pAnswer, uint32_t ulSize);

/* ---- What happens by itself (events.c) ---- */

/* Registers for packets and link changes of the kernel, for questions about objects and configuration, for the door's
 * contact, and a timer. */
int32_t oltEventsInit(void);
/* Tells mgmtd, if it runs, and the log. */
void oltAlarm(const char *pText);

#endif
