// A stub for each name that the system exports: it jumps through a word that the loader fills in. The linker drops
// those that nobody calls; tools/make-ce-image imports the rest.

.macro import name
    .section .text.\name, "ax", %progbits
    .global \name
    .type \name, %function
\name:
    ldr ip, [pc]
    ldr pc, [ip]
    .word __imp_\name
    .section .imports.\name, "aw", %progbits
    .global __imp_\name
__imp_\name:
    .word 0
.endm

.include "arm_import_list.inc"
