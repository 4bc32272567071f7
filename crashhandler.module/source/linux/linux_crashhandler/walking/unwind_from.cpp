#include "linux/linux_crashhandler/walking/unwind_from.h"

// The record's address is kept in rbx, DWARF register 3, whose value the unwinder knows here.
//
//   .cfi_escape 0x0f, …      DW_CFA_def_cfa_expression: the stack pointer of the record
//   .cfi_escape 0x10, R, …   DW_CFA_expression: register R stands at the record + 8 R
//   0x73, OFFSET             DW_OP_breg3: rbx + OFFSET, a signed LEB128
//   0x06                     DW_OP_deref
asm(R"(
  .pushsection .text
  .globl tarvoUnwindFrom
  .hidden tarvoUnwindFrom
  .type tarvoUnwindFrom, @function
tarvoUnwindFrom:
  .cfi_startproc
  .cfi_signal_frame
  pushq %rbx
  movq %rdi, %rbx
  movq %rsi, %rdi
  movq %rdx, %rsi
  .cfi_escape 0x0f, 3, 0x73, 56, 0x06
  .cfi_escape 0x10, 0, 2, 0x73, 0
  .cfi_escape 0x10, 1, 2, 0x73, 8
  .cfi_escape 0x10, 2, 2, 0x73, 16
  .cfi_escape 0x10, 3, 2, 0x73, 24
  .cfi_escape 0x10, 4, 2, 0x73, 32
  .cfi_escape 0x10, 5, 2, 0x73, 40
  .cfi_escape 0x10, 6, 2, 0x73, 48
  .cfi_escape 0x10, 8, 3, 0x73, 0xc0, 0
  .cfi_escape 0x10, 9, 3, 0x73, 0xc8, 0
  .cfi_escape 0x10, 10, 3, 0x73, 0xd0, 0
  .cfi_escape 0x10, 11, 3, 0x73, 0xd8, 0
  .cfi_escape 0x10, 12, 3, 0x73, 0xe0, 0
  .cfi_escape 0x10, 13, 3, 0x73, 0xe8, 0
  .cfi_escape 0x10, 14, 3, 0x73, 0xf0, 0
  .cfi_escape 0x10, 15, 3, 0x73, 0xf8, 0
  .cfi_escape 0x10, 16, 3, 0x73, 0x80, 1
  callq _Unwind_Backtrace@PLT
  popq %rbx
  retq
  .cfi_endproc
  .size tarvoUnwindFrom, . - tarvoUnwindFrom
  .popsection
)");
