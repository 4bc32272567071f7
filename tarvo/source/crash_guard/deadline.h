#pragma once

#include <signal.h>
#include <sys/types.h>

#include <cstdint>

namespace tarvo {

// Each stage of a capture has a limit of time of its own, but for the report, which waits for the
// reader of a full pipe or for a file system, and for callbacks of the program. Two timers of the
// kernel watch it. They are made at the crash, so a
// running program has none, and a process that was forked gets its own.
//
// The first one sends SIGTRAP to the capturing thread, the one signal of the capture's own that it
// does not block and that no program answers to get its work done (a sandbox does SIGSYS, a runtime
// SIGSEGV). The second one, after the grace, is SIGKILL, which ends the process also when the
// capturing thread itself does not return from the kernel.

/// Starts the time of the crash that thread `self` captures; 0 seconds: none. Crashed process.
void StartDeadline(pid_t self, std::int64_t seconds);

/// Whether a signal is the first timer's. Any context.
bool IsDeadline(const siginfo_t& info);

/// Says that the capture has taken too long, flushes and ends the process with status 1; should
/// flushing hang, it comes here again and ends at once. Crashed process.
void OnDeadline();

}  // namespace tarvo
