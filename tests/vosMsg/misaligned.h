/* SPDX-License-Identifier: MIT */
/* A message buffer that the application defines in place of the library's. It is one byte off its boundary. */
#ifndef TESTS_VOSMSG_MISALIGNED_H
#define TESTS_VOSMSG_MISALIGNED_H

#define MISALIGNED_BUFFER(name)        \
    asm(".bss\n"                       \
        ".balign 8\n"                  \
        ".skip 1\n"                    \
        ".globl " name                 \
        "\n"                           \
        ".type " name                  \
        ", STT_OBJECT\n"               \
        ".size " name ", 64600\n" name \
        ":\n"                          \
        ".skip 64600\n"                \
        ".text\n")

#endif
