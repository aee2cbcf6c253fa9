/* SPDX-License-Identifier: MIT */
/* A message buffer that the application defines in place of the library's, a few bytes off a boundary of 16 bytes. */
#ifndef TESTS_VOSMSG_MISALIGNED_H
#define TESTS_VOSMSG_MISALIGNED_H

#define OWN_BUFFER(name, bytes)        \
    asm(".bss\n"                       \
        ".balign 16\n"                 \
        ".skip " bytes                 \
        "\n"                           \
        ".globl " name                 \
        "\n"                           \
        ".type " name                  \
        ", STT_OBJECT\n"               \
        ".size " name ", 64600\n" name \
        ":\n"                          \
        ".skip 64600\n"                \
        ".text\n")

#define MISALIGNED_BUFFER(name) OWN_BUFFER(name, "1")

#endif
