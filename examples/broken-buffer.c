/* SPDX-License-Identifier: MIT */
/* What a broken invariant looks like. An application may bring a message buffer of its own in place of the library's;
 * this one does not lie on an 8-byte boundary, so the process is stopped before it can exchange a message. */
#include <vos.h>

__asm__(
    ".bss; .balign 8; .skip 1; .globl g_vosMsgBufferRecv; .type g_vosMsgBufferRecv, STT_OBJECT;"
    ".size g_vosMsgBufferRecv, 64600; g_vosMsgBufferRecv: .skip 64600; .text");

int main(void) { return vosProcessInit("broken"); }
