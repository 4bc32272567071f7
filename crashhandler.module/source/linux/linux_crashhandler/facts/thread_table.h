#pragma once

#include <sys/types.h>
#include <ucontext.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "linux/linux_crashhandler/base/fault_guard.h"
#include "linux/linux_crashhandler/facts/registers.h"
#include "linux/linux_crashhandler/walking/stack_walk.h"

namespace tarvo::crashhandler {

// The threads of the crashed process as the capture works with them, in one table that does not
// move: the crashing thread, the tracer and the threads that are asked for their stacks write into
// it at the same time, each into fields of its own. The table is in the capture's memory.

/// What has become of stopping a thread. Written by the tracer.
enum class StopState : std::uint32_t {
  Listed,       ///< nothing was tried
  Refused,      ///< the kernel does not let it be traced; `error` says why
  Interrupted,  ///< it was told to stop and has not
  Stopped,      ///< it stands still, and `registers` are its
  Ended,        ///< there is no such thread any more
};

/// What has become of asking a thread for its stack.
enum class RequestState : std::uint32_t {
  None,
  Asked,      ///< SIGHUP is on its way
  Claimed,    ///< the thread writes its stack
  Answered,   ///< its stack is complete; it waits in its handler
  TakenBack,  ///< too late: it only waits
};

struct ThreadEntry {
  pid_t tid = 0;
  char name[16] = {};
  bool isKernelWorker = false;  ///< it has no stack in this process
  std::atomic<StopState> stop{StopState::Listed};
  int error = 0;  ///< errno value
  bool hasRegisters = false;
  ThreadRegisters registers;
  bool isForChild = false;  ///< its registers are read by the crash child

  std::atomic<RequestState> request{RequestState::None};
  bool isHurried = false;  ///< it was told to do without the unwinder
  FaultGuard guard;        ///< of its walk, when it is asked
  /// Where the request has interrupted it; null once its handler for that has run out of stack.
  const ucontext_t* interrupted = nullptr;

  Stack stack;
  bool isHeldUp = false;  ///< its walk is to be tried again
  /// Why there are no frames; null while there is nothing to say. Constant texts.
  const char* framesMissing = nullptr;
  const char* registersMissing = nullptr;
};

struct ThreadTable {
  ThreadEntry* entries = nullptr;
  std::size_t capacity = 0;
  std::atomic<std::size_t> count{0};

  [[nodiscard]] ThreadEntry* begin() const { return entries; }
  [[nodiscard]] ThreadEntry* end() const { return entries + count.load(); }
  /// The thread's entry, or null. Any context, tracer.
  [[nodiscard]] ThreadEntry* Find(pid_t tid) const;
  /// A new entry at the end; null when the table is full. One writer at a time. Crashed process,
  /// tracer.
  ThreadEntry* Add(pid_t tid);
};
extern ThreadTable g_threadTable;

/// Lists the threads of this process, in the order in which the kernel lists them; `self`, the
/// calling one, is among them in any case. Crashed process.
void ListThreads(pid_t self);

/// The open task directory of the process, or -1 when there is none that lists this process's
/// threads. Crashed process, tracer.
int TaskDirectory();

/// Holds what is needed to list the threads when no descriptor is left. Before a crash.
void PrepareThreadList();

}  // namespace tarvo::crashhandler
