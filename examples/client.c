/* SPDX-License-Identifier: MIT */
/* A client: one request to a process by its name, and the answer. */
#include <stdio.h>
#include <vos.h>

int main(int argc, char **argv) {
    const char *const name = argc > 1 ? argv[1] : "server";
    char text[7] = "who?"; /* one byte more than is sent and received, because the answer's text may have no NUL */
    uint32_t code = 0;
    vosProcessInit("client");
    if (vosMsgSend(name, text, sizeof text - 1, VOS_MSG_WAIT_ANSWER, &code, 3000, 0) != VOS_OK) {
        printf("\nclient: %s does not answer\n", name);
        return 1;
    }
    printf("client: %s says \"%s\" and has worked %u times\n", name, text, code);
    return 0;
}
