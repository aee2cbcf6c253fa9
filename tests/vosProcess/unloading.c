/* SPDX-License-Identifier: MIT */
/* Loads the library, registers a termination procedure, unloads the library, and then gets SIGTERM. Not linked to the
 * library, because a library that a program is linked to is never unloaded.
 *
 *     unloading LIBRARY */
#include <dlfcn.h>
#include <signal.h>
#include <stdint.h>
#include <string.h>
#include <unistd.h>

static void say(const char *pText) {
    if (write(STDOUT_FILENO, pText, strlen(pText)) < 0) _exit(3);
}

static void terminate(int32_t iReserved) {
    (void)iReserved;
    say("terminated ");
}

int main(int argc, char **argv) {
    void *const library = argc == 2 ? dlopen(argv[1], RTLD_NOW) : NULL;
    void *const symbol = library != NULL ? dlsym(library, "vosProcessRegTerminateProc") : NULL;
    int32_t (*registration)(void (*)(int32_t)) = NULL;
    if (symbol == NULL) return 1;
    memcpy(&registration, &symbol, sizeof symbol); /* ISO C has no conversion from an object to a function */
    registration(terminate);
    if (dlclose(library) != 0) return 2;
    say("unloaded ");
    raise(SIGTERM);
    say("after the signal");
    _exit(0);
}
