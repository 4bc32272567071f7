#pragma once

#include <sys/types.h>

#include <cstdint>

namespace tarvo::crashhandler {

/// Where a thread waits, as the kernel tells it without stopping anything.
struct ThreadPlace {
  bool isKnown = false;  ///< false for a thread that runs, and where there is no /proc
  long systemCall = -1;  ///< the number; -1 outside of one
  std::uint64_t stackPointer = 0;
  std::uint64_t programCounter = 0;
};

/// Reads /proc/self/task/`tid`/syscall (linux-6.1 fs/proc/base.c, proc_pid_syscall: "running",
/// "-1 SP PC", or "NUMBER ARGUMENT… SP PC"). Also allowed where tracing is refused: threads of one
/// process may look at each other (linux-6.1 kernel/ptrace.c, __ptrace_may_access). Crashed
/// process.
ThreadPlace ReadThreadPlace(pid_t tid);

}  // namespace tarvo::crashhandler
