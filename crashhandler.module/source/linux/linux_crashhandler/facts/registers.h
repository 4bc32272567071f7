#pragma once

#include <sys/user.h>

#include <cstddef>

#include "tarvo/crashhandler.h"

namespace tarvo::crashhandler {

/// One thread's registers in the kernel's layouts.
struct ThreadRegisters {
  user_regs_struct general;
  user_fpregs_struct floating;
};
static_assert(offsetof(ThreadRegisters, floating) == 216);

/// Appends a thread's 43 registers, each widened to 64 bits, to its record. Stops early when memory
/// is gone. Crashed process.
void DecodeRegisters(ThreadRecord& thread, const ThreadRegisters& registers);

}  // namespace tarvo::crashhandler
