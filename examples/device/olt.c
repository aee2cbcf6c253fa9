/* SPDX-License-Identifier: MIT */
/* The command of an administrator: sends a request to the OLT, through a session of mgmtd.
 *
 *     olt [-s SESSION] REQUEST...
 *     olt alarm
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "olt.h"

static int usage(void) {
    fprintf(stderr,
            "usage: olt [-s SESSION] show | config | set LINE | save | upgrade FILE VERSION | backup | bootloader FILE "
            "| reboot | selftest | audit | "
            "alarm\n");
    return 2;
}

/* The words of the request, with blanks between them. */
static bool join(char **ppWords, char *pText) {
    size_t length = 0;
    for (; *ppWords != NULL; ++ppWords) {
        const int written = snprintf(pText + length, TEXT_LENGTH - length, length > 0 ? " %s" : "%s", *ppWords);
        length += (size_t)written;
        if (length >= TEXT_LENGTH) return false;
    }
    return length > 0;
}

int main(int argc, char **argv) {
    char text[TEXT_LENGTH] = "";
    int session = 1;
    uint32_t code = 0;
    char **words = argv + 1;
    if (argc > 2 && strcmp(argv[1], "-s") == 0) {
        session = atoi(argv[2]);
        words += 2;
    }
    if (session < 1 || session > SESSIONS || !join(words, text)) return usage();
    vosProcessInit("olt");
    const bool alarm = strcmp(text, "alarm") == 0;
    const int32_t result =
        alarm ? vosMsgSend(MGMTD, text, sizeof text, VOS_MSG_WAIT_ANSWER, &code, TIMEOUT_MS, 0)
              : vosMsgThreadSend(MGMTD, session, text, sizeof text, VOS_MSG_WAIT_ANSWER, &code, TIMEOUT_MS + 1000, 0);
    if (result != VOS_OK) {
        fprintf(stderr, "\nolt: mgmtd does not answer (%d)\n", result);
        return 1;
    }
    text[sizeof text - 1] = '\0';
    printf("%s%s", text, text[0] != '\0' && text[strlen(text) - 1] == '\n' ? "" : "\n");
    return code == VOS_OK ? 0 : 1;
}
