/* SPDX-License-Identifier: MIT */
/* Prints what it has inherited from the process that started it, for tests/support/inheritance.h. */
#include <dirent.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

extern char **environ;

static void printDescriptors(void) {
    DIR *const directory = opendir("/proc/self/fd");
    if (directory == NULL) return;
    for (const struct dirent *entry = readdir(directory); entry != NULL; entry = readdir(directory))
        if (entry->d_name[0] != '.' && atoi(entry->d_name) != dirfd(directory))
            printf("\ninherited descriptor %s", entry->d_name);
    closedir(directory);
}

static void printSignals(void) {
    sigset_t blocked;
    sigprocmask(SIG_SETMASK, NULL, &blocked);
    for (int number = 1; number < NSIG; ++number) {
        struct sigaction action;
        if (sigismember(&blocked, number) == 1) printf("\ninherited blocked %d", number);
        if (sigaction(number, NULL, &action) == 0 && action.sa_handler == SIG_IGN)
            printf("\ninherited ignored %d", number);
    }
}

int main(void) {
    char directory[4096] = "";
    if (getcwd(directory, sizeof directory) != NULL) printf("\ninherited directory %s", directory);
    printDescriptors();
    printSignals();
    for (char **variable = environ; *variable != NULL; ++variable) printf("\ninherited variable %s", *variable);
    printf("\ninherited all\n");
    return 0;
}
