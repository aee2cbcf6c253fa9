/* SPDX-License-Identifier: MIT */
/* Loaded before the library. With REFUSAL set, the check of an image answers with that code. With SIGNAL set, the
 * process gets that signal at the moment at which a file it writes is empty. */
#define _GNU_SOURCE /* NOLINT(bugprone-reserved-identifier): for RTLD_NEXT */
#include <dlfcn.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vosFile.h>

int32_t vosFileImageCheck(uint32_t ulType, const uint8_t *pBuf, uint32_t ulBufLen) {
    const char *const code = getenv("REFUSAL");
    if (code != NULL) return (int32_t)strtol(code, NULL, 10);
    int32_t (*const real)(uint32_t, const uint8_t *, uint32_t) =
        (int32_t(*)(uint32_t, const uint8_t *, uint32_t))dlsym(RTLD_NEXT, "vosFileImageCheck");
    return real(ulType, pBuf, ulBufLen);
}

static void signalWhereEmpty(int fd) {
    const char *const number = getenv("SIGNAL");
    struct stat status;
    if (number != NULL && fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_size == 0)
        kill(getpid(), (int)strtol(number, NULL, 10));
}

int flock(int fd, int operation) {
    int (*const real)(int, int) = (int (*)(int, int))dlsym(RTLD_NEXT, "flock");
    if (operation == LOCK_EX) signalWhereEmpty(fd);
    return real(fd, operation);
}

int ftruncate(int fd, off_t length) {
    int (*const real)(int, off_t) = (int (*)(int, off_t))dlsym(RTLD_NEXT, "ftruncate");
    const int result = real(fd, length);
    signalWhereEmpty(fd);
    return result;
}
