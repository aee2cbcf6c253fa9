/* SPDX-License-Identifier: MIT */
/* A process that loads the library. Its argument says which part of the start-up it does. */
#include <string.h>
#include <vos.h>

static int32_t openChannel(void) {
    VOS_MSG_PEER peer;
    return vosProcessInit("bench") == VOS_OK ? vosMsgInit("bench", 1, &peer) : VOS_ERROR;
}

int main(int argc, char **argv) {
    const char *const what = argc > 1 ? argv[1] : "nothing";
    if (strcmp(what, "init") == 0) return vosInit("bench") == VOS_OK ? 0 : 1;
    if (strcmp(what, "channel") == 0) return openChannel() == VOS_OK ? 0 : 1;
    return vosProcessGetId() > 0 ? 0 : 1;
}
