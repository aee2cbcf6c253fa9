/* SPDX-License-Identifier: MIT */
/* Prints the name that the library has for a process that has not given itself one. */
#include <stdio.h>
#include <vos.h>

int main(void) {
    printf("%s", vosProcessGetName());
    return 0;
}
