#pragma once

#include <sys/types.h>

#include "crash_context/signal_frame.h"

namespace tarvo::crashhandler {

/// Puts the crashing thread's stack into its entry: the crash handler and what has called it, the
/// signal trampoline, the program counter at the fault, and its callers. Without a frame of the
/// kernel's what can be walked from here. Crashed process.
void WalkCrashedThread(pid_t self, const SignalFrame& frame);

/// Walks the stacks of all threads that stand still, from their registers. A walk that faults or
/// takes too long is given up, with what it has; where the unwinder keeps walks waiting they are
/// tried again after the threads went on for a moment, in the end without the unwinder. So is the
/// crashing thread's, when the unwinder kept it waiting. Crashed process.
void WalkStoppedThreads(pid_t self, const SignalFrame& frame);

/// Gives threads that have no frames the one that the kernel knows of a blocked thread, and a
/// reason. Crashed process.
void CompleteStacks();

}  // namespace tarvo::crashhandler
