/* SPDX-License-Identifier: MIT */
/* Asks a process and prints the answer: ask NAME TEXT. Exit status 1 when there is none. */
#include <stdio.h>
#include <string.h>
#include <vos.h>

int main(int argc, char **argv) {
    char text[32] = "";
    uint32_t code = 0;
    if (argc != 3 || strlen(argv[2]) >= sizeof text) return 2;
    strcpy(text, argv[2]);
    if (vosMsgSend(argv[1], text, sizeof text, VOS_MSG_WAIT_ANSWER, &code, 500, 0) != VOS_OK) return 1;
    printf("%d\n", (int32_t)code);
    return 0;
}
