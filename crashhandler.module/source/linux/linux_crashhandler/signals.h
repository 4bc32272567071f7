#pragma once

#include <signal.h>

#include "tarvo/crashhandler.h"

namespace tarvo::crashhandler {

/// Installs the crash handler for SIGSEGV, SIGILL, SIGBUS, SIGSYS, SIGTRAP and SIGFPE and the stack
/// handler for SIGHUP, keeps the previous actions, and prepares all that the crash path must not do
/// first in a crash. Returns 1. Before a crash.
int InstallCrashHandler();

/// Puts the previous actions back. When a capture runs in another thread, waits for the end of the
/// process instead: the capture needs its handlers. Before a crash.
void RestoreSignalHandlers();

/// Store the functions that are called at a crash and after it. Before a crash.
void SetCrashReportCallback(CrashCallback callback);
void SetAfterReportCallback(CrashCallback callback);

/// Puts the stack handler in place for SIGHUP again, in case the program has replaced it. Crashed
/// process.
void ReinstallStackHandler();

/// Puts the crash handler in place for SIGSEGV and SIGBUS, in case the program has replaced it: a
/// step of the capture that faults must not run the program's handler. Crashed process.
void ReinstallFaultHandler();

/// Whether the crash guard has given the threads alternate stacks, on which the crash handler runs.
/// Known since ReinstallFaultHandler. Crashed process.
bool HasAlternateStacks();

/// Sets the mask of the crashing thread: the fatal signals and SIGHUP get through (a second fault
/// must reach the handler, and the thread is asked for its own stack), all others wait. SIGPIPE and
/// SIGXFSZ would otherwise end the process while the report is written. Crashed process.
void MaskSignalsForCapture();

/// Lets SIGSEGV and SIGBUS through in the calling thread, for a step that may fault: where a
/// fault's signal is blocked, the kernel ends the process (linux-6.1 kernel/signal.c,
/// force_sig_info_to_task). The program may block them, and a handler and Park do. Signalled
/// thread.
void UnblockFaults();

/// Gives the fatal signals their default effect. Crash child.
void ResetFatalSignals();

/// Calls the function that handled SIGHUP before the module did, if there was one. Signalled
/// thread.
void ForwardHangup(int signal, siginfo_t* info, void* context);

}  // namespace tarvo::crashhandler
