/* What the C library looks up in libgcc_s.so.1, by name, when a thread is cancelled or leaves by pthread_exit(), and for
   backtrace(). The compiler's unwinder is made to be linked into each program, with its names hidden. These are seen,
   and go to it: make_root.sh gives its functions the prefix first. */

    .syntax unified
    .thumb
    .text

    .macro seen name
    .globl \name
    .type \name, %function
    .thumb_func
\name:
    b linked_\name
    .size \name, . - \name
    .endm

    seen _Unwind_Resume
    seen _Unwind_ForcedUnwind
    seen _Unwind_GetCFA
    seen _Unwind_Backtrace
    seen _Unwind_VRS_Get
    seen __gcc_personality_v0

    .section .note.GNU-stack, "", %progbits
