/* SPDX-License-Identifier: MIT */
/* What is called in place of a function: it keeps every register that may hold an argument, asks vosFaultsDecide(), and
 * then jumps to the function as if nothing had been in between, or returns a result. So it needs to know nothing of the
 * function: a variable number of arguments, a structure by value and vfork() pass untouched.
 *
 * void *vosFaultsDecide(unsigned long index, Frame *frame): the function's address, or null for the result in the frame.
 *
 * Every exported function of libvos has a stub of its name; behind them are vosFaultsImportStubs, 16 bytes each.
 */
#define IMPORT_STUBS 512

    .text
    .set index, 0

#if defined(__x86_64__)

    .macro stub
    .balign 16
    endbr64
    pushq $index
    jmp common
    .set index, index + 1
    .endm

    .type common, %function
    .balign 16
common: /* on the stack: the index, the return address */
    pushq %r10
    pushq %rax
    pushq %r9
    pushq %r8
    pushq %rcx
    pushq %rdx
    pushq %rsi
    pushq %rdi
    subq $128, %rsp
    movups %xmm0, 0(%rsp)
    movups %xmm1, 16(%rsp)
    movups %xmm2, 32(%rsp)
    movups %xmm3, 48(%rsp)
    movups %xmm4, 64(%rsp)
    movups %xmm5, 80(%rsp)
    movups %xmm6, 96(%rsp)
    movups %xmm7, 112(%rsp)
    movq 192(%rsp), %rdi
    leaq 128(%rsp), %rsi
    call vosFaultsDecide
    movq %rax, %r11
    movups 0(%rsp), %xmm0
    movups 16(%rsp), %xmm1
    movups 32(%rsp), %xmm2
    movups 48(%rsp), %xmm3
    movups 64(%rsp), %xmm4
    movups 80(%rsp), %xmm5
    movups 96(%rsp), %xmm6
    movups 112(%rsp), %xmm7
    addq $128, %rsp
    popq %rdi
    popq %rsi
    popq %rdx
    popq %rcx
    popq %r8
    popq %r9
    popq %rax
    popq %r10
    addq $8, %rsp
    testq %r11, %r11
    jz 1f
    jmp *%r11
1:  ret /* the result is in the place of %rax */
    .size common, . - common

#elif defined(__aarch64__)

    .macro stub
    .balign 16
    hint #34 /* bti c */
    movz x16, #index
    b common
    .set index, index + 1
    .endm

    .type common, %function
    .balign 16
common:
    stp x29, x30, [sp, #-240]!
    mov x29, sp
    stp x0, x1, [sp, #16]
    stp x2, x3, [sp, #32]
    stp x4, x5, [sp, #48]
    stp x6, x7, [sp, #64]
    str x8, [sp, #80]
    stp q0, q1, [sp, #96]
    stp q2, q3, [sp, #128]
    stp q4, q5, [sp, #160]
    stp q6, q7, [sp, #192]
    mov x0, x16
    add x1, sp, #16
    bl vosFaultsDecide
    mov x16, x0
    ldp q0, q1, [sp, #96]
    ldp q2, q3, [sp, #128]
    ldp q4, q5, [sp, #160]
    ldp q6, q7, [sp, #192]
    ldr x8, [sp, #80]
    ldp x6, x7, [sp, #64]
    ldp x4, x5, [sp, #48]
    ldp x2, x3, [sp, #32]
    ldp x0, x1, [sp, #16]
    ldp x29, x30, [sp], #240
    cbz x16, 1f
    br x16
1:  ret /* the result is in the place of x0 */
    .size common, . - common

#else
#error "This processor has no stubs yet"
#endif

#define EXPORT(name, parameters, usual, kind) stub_of name;
    .macro stub_of name
    .balign 16
    .globl \name
    .type \name, %function
\name:
    stub
    .size \name, . - \name
    .endm
#include "exports.inc"

    .balign 16
    .globl vosFaultsImportStubs
    .hidden vosFaultsImportStubs
vosFaultsImportStubs:
    .rept IMPORT_STUBS
    stub
    .endr
    .balign 16

    .section .note.GNU-stack, "", %progbits
