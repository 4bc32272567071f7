#pragma once

#include <signal.h>
#include <sys/types.h>

namespace tarvo {

// A thread in an uninterruptible system call answers no signal and takes no tracer, so the capture
// waits for it. It would pass over a thread that has ended, which it learns from the thread's
// status file, and over one that cannot be traced. At the deadline it is told just that of the
// stuck threads: a seccomp filter of the capturing thread alone, which the crash child inherits,
// refuses PTRACE_ATTACH to them and hands each opening of a file for reading to SIGSYS, whose
// handler opens the file unless it is such a status file. The report then has all other threads
// whole.

/// Passes over the threads that are stuck at this moment; how many there are. 0, and nothing is
/// changed, where there are none or the kernel takes no filter. Crashed process: capturing thread,
/// in the handler of the deadline.
int PassOverStuckThreads();

/// Whether the signal is that filter's. Any context.
bool IsRefusedOpen(const siginfo_t& info);

/// Does what the system call that the filter has stopped would have done. Crashed process.
void AnswerOpen(void* context);

}  // namespace tarvo
