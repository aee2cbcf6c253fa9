/* SPDX-License-Identifier: MIT */
/* Loaded before the library. With REFUSAL set, the check of an image returns that code. With SIGNAL set, the process
 * gets that signal at the moment at which a file it writes is empty. With JOURNAL set, the library uses a journal in
 * that directory. */
#define _GNU_SOURCE /* NOLINT(bugprone-reserved-identifier): for RTLD_NEXT */
#include <dlfcn.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vosFile.h>

__attribute__((constructor)) static void chooseJournal(void) {
    const char *const directory = getenv("JOURNAL");
    if (directory != NULL) szVosJournalDir = directory;
}

/* Copied, because C has no cast from the address of an object to that of a function. */
static void find(const char *name, void *function) {
    void *const found = dlsym(RTLD_NEXT, name);
    memcpy(function, &found, sizeof found);
}

int32_t vosFileImageCheck(uint32_t ulType, const uint8_t *pBuf, uint32_t ulBufLen) {
    const char *const code = getenv("REFUSAL");
    if (code != NULL) return (int32_t)strtol(code, NULL, 10);
    int32_t (*real)(uint32_t, const uint8_t *, uint32_t) = NULL;
    find("vosFileImageCheck", &real);
    return real(ulType, pBuf, ulBufLen);
}

static void signalWhereEmpty(int fd) {
    const char *const number = getenv("SIGNAL");
    struct stat status;
    if (number != NULL && fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_size == 0)
        kill(getpid(), (int)strtol(number, NULL, 10));
}

int flock(int fd, int operation) {
    int (*real)(int, int) = NULL;
    find("flock", &real);
    if (operation == LOCK_EX) signalWhereEmpty(fd);
    return real(fd, operation);
}

int ftruncate(int fd, off_t length) {
    int (*real)(int, off_t) = NULL;
    find("ftruncate", &real);
    const int result = real(fd, length);
    signalWhereEmpty(fd);
    return result;
}
