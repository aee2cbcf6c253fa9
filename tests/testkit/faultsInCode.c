/* SPDX-License-Identifier: MIT */
/* The rules set by the code of a test, which is linked with the library in place of being started by the command. */
#include <assert.h>
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>
#include <vos.h>
#include <vosFaults.h>

#undef NDEBUG
#include <assert.h>

int main(void) {
    char content[4] = "abc";
    assert(vosFileWrite("/flash/a", content, 3) == VOS_OK);

    assert(vosFaultsSet("write@/flash=ENOSPC vosMsgSend#2=VOS_ERR_TIMEOUT:ETIMEDOUT") == 0);
    assert(vosFileWrite("/tmp/a", content, 3) == VOS_OK); /* not below /flash */
    assert(vosFileWrite("/flash/b", content, 3) != VOS_OK);
    assert(vosFaultsStruck() == 1);
    const int fd = open("/flash/own", O_WRONLY | O_CREAT, 0600);
    assert(write(fd, content, 3) == 3); /* a call of the program itself */
    assert(close(fd) == 0);
    errno = 0;
    assert(vosMsgSend("nobody", content, 3, 0, 0, 100, 0) == VOS_ERROR);
    assert(vosMsgSend("nobody", content, 3, 0, 0, 100, 0) == VOS_ERR_TIMEOUT && errno == ETIMEDOUT);
    assert(vosFaultsStruck() == 2);
    assert(vosFaultsCalls("vosMsgSend") == 2 && vosFaultsCalls("vosFileWrite") == 2);
    assert(vosFaultsCalls("no such call") == 0 && vosFaultsCalls(0) == 0);

    assert(vosFaultsSet("vosMsgSned") == -1);
    assert(vosFaultsCalls("vosMsgSend") == 2); /* nothing has changed */
    assert(vosFaultsSet(0) == 0);
    assert(vosFaultsCalls("vosMsgSend") == 0);
    assert(vosFileWrite("/flash/b", content, 3) == VOS_OK);
    vosPrintf("all as expected\n");
    return 0;
}
