/* SPDX-License-Identifier: MIT */
/* Prints the name that the library uses for a process that has not set its name. */
#include <stdio.h>
#include <vos.h>

int main(void) {
    printf("%s", vosProcessGetName());
    return 0;
}
