#pragma once

#include <signal.h>
#include <sys/types.h>

#include "crash_context/signal_frame.h"

namespace tarvo {

/// Adds to the variables of thread `self`, as they stand in the report:
///
///     FaultSignal = SIGSEGV
///     FaultCode = SEGV_MAPERR, address not mapped
///     FaultAddress = 0x0000000000000010     for a fault; or, for a signal that somebody sent,
///     FaultSender = process 4711, user 1000
///     Fault_rip = 0x000055d0c2a411f9        and rsp, rax … r15, eflags
///
/// The registers are those of the interrupted code. The traced ones of the report show the thread
/// as it waits inside its handler. What the kernel did not tell is left out. Crashed process,
/// once.
void PublishFaultFacts(pid_t self, int signal, const SignalFrame& frame);

}  // namespace tarvo
