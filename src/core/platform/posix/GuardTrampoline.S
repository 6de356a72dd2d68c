# int orvi_guard_trampoline(void (*step)(void*), void* argument, void* place[2])
#
# Calls the step and gives 0. Before, it notes its stack and frame pointer in `place`: a signal handler sends the thread to
# orvi_guard_landing with the two, which restores what the caller expects and gives 1. The personality routine sees an
# exception on its way to a handler while the whole stack is still there.
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
    subq $8, %rsp
    stmxcsr (%rsp)
    fnstcw 4(%rsp)
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
    cld
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
