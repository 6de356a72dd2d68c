# int orvi_guard_trampoline(void (*step)(void*), void* argument, void* place[2])
#
# Calls the step and gives 0. Before, it notes its stack and frame pointer in `place`: a signal handler sends the thread to
# orvi_guard_landing with the two, which restores what the caller expects and gives 1. The personality routine sees an
# exception on its way to a handler while the whole stack is still there.
#ifdef __CET__
#include <cet.h> // marks this file as fit for indirect branch tracking and shadow stacks
#endif
    .text
    .globl orvi_guard_trampoline
    .hidden orvi_guard_trampoline
    .type orvi_guard_trampoline, @function
orvi_guard_trampoline:
    .cfi_startproc
    .cfi_personality 0x1b, orvi_guard_personality
    endbr64
    pushq %rbp
    .cfi_def_cfa_offset 16
    .cfi_offset %rbp, -16
    movq %rsp, %rbp
    .cfi_def_cfa_register %rbp
    pushq %rbx
    pushq %r12
    pushq %r13
    pushq %r14
    pushq %r15
    subq $24, %rsp
    stmxcsr (%rsp)
    fnstcw 4(%rsp)
    xorl %eax, %eax
    rdsspq %rax # stays 0 without a shadow stack
    movq %rax, 8(%rsp)
    movq %rsp, 0(%rdx)
    movq %rbp, 8(%rdx)
    movq %rdi, %rax
    movq %rsi, %rdi
    call *%rax
    xorl %eax, %eax
    leave
    .cfi_remember_state
    .cfi_def_cfa %rsp, 8
    ret
    .cfi_restore_state

    .globl orvi_guard_landing
    .hidden orvi_guard_landing
orvi_guard_landing:
    endbr64
    # The shadow stack still has the return addresses of what the fault left: drop them, at most 255 at once.
    xorl %eax, %eax
    rdsspq %rax
    testq %rax, %rax
    jz 2f
    movq 8(%rsp), %rcx
    subq %rax, %rcx
    shrq $3, %rcx
    jz 2f
    movl $255, %edx
1:  cmpq %rdx, %rcx
    cmovbq %rcx, %rdx
    incsspq %rdx
    subq %rdx, %rcx
    jnz 1b
2:  cld
    fninit
    ldmxcsr (%rsp)
    fldcw 4(%rsp)
    movq -8(%rbp), %rbx
    movq -16(%rbp), %r12
    movq -24(%rbp), %r13
    movq -32(%rbp), %r14
    movq -40(%rbp), %r15
    movl $1, %eax
    leave
    .cfi_def_cfa %rsp, 8
    ret
    .cfi_endproc
    .size orvi_guard_trampoline, . - orvi_guard_trampoline

    .section .note.GNU-stack, "", @progbits
