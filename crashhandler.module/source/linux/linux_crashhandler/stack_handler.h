#pragma once

#include <signal.h>

namespace tarvo::crashhandler {

/// The action of SIGHUP. Asked by the capture, it records the interrupted thread's stack into
/// currentThreadRecord; otherwise it hands the signal to the function that was installed before it,
/// if any, and changes nothing. Signalled thread.
void StackHandler(int signal, siginfo_t* info, void* context);

/// Runs the unwinder once, so that what it sets up on first use (libgcc 12 unwind-dw2.c,
/// init_dwarf_reg_size_table) is there. Before a crash.
void WarmUnwinder();

}  // namespace tarvo::crashhandler
