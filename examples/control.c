/* SPDX-License-Identifier: MIT */
/* Calls of a tool that controls a running process: switch its trace, request its configuration, and send a request
 * while it is busy. */
#include <stdio.h>
#include <string.h>
#include <vos.h>

#define ALL_WORK 5

/* Sends one request to the server. Returns the code of its answer, which is how often it has worked, or -1. */
static int32_t ask(uint32_t ulFlags) {
    char text[6] = "who?";
    uint32_t code = 0;
    if (vosMsgSend("server", text, sizeof text, VOS_MSG_WAIT_ANSWER, &code, 3000, ulFlags) != VOS_OK) return -1;
    return (int32_t)code;
}

static int trace(void) {
    if (vosMsgDebugVos("server", VOS_DEBUG_ERROR | VOS_DEBUG_TRACE) != VOS_OK) return 1;
    if (ask(0) < 0 || vosMsgDebugVos("server", VOS_DEBUG_ERROR) != VOS_OK) return 1;
    return ask(0) < 0; /* this request is not traced any more */
}

static int config(void) {
    char text[4096];
    uint32_t unused = sizeof text; /* the size of the buffer, then the number of bytes that are still free */
    const int32_t result = vosMsgBldrunSend("server", text, &unused, 0, 0);
    if (result != VOS_OK) return 1;
    printf("%.*s", (int)(sizeof text - unused), text);
    return 0;
}

static int busy(void) {
    const int32_t before = ask(0);
    for (int i = 0; i < ALL_WORK; ++i) {
        char text[] = "work";
        if (vosMsgSend("server", text, sizeof text, VOS_MSG_NO_ANSWER, NULL, 3000, 0) != VOS_OK) return 1;
    }
    const int32_t high = ask(VOS_MSG_TO_HIGH) - before;
    const int32_t normal = ask(0) - before;
    printf("control: the high socket answered after %d of %d pieces of work, the normal one after %d\n", high, ALL_WORK,
           normal);
    return high < 0 || high >= ALL_WORK || normal != ALL_WORK;
}

int main(int argc, char **argv) {
    vosProcessInit("control");
    if (argc == 2 && strcmp(argv[1], "trace") == 0) return trace();
    if (argc == 2 && strcmp(argv[1], "config") == 0) return config();
    if (argc == 2 && strcmp(argv[1], "busy") == 0) return busy();
    char stop[] = "stop";
    if (argc == 2 && strcmp(argv[1], "stop") == 0)
        return vosMsgSend("server", stop, sizeof stop, VOS_MSG_NO_ANSWER, NULL, 3000, 0) != VOS_OK;
    fprintf(stderr, "usage: control trace|config|busy|stop\n");
    return 2;
}
