#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>

namespace tarvo::crashhandler {

// The tracer: a process that shares the memory of the crashed one (clone with CLONE_VM), so that it
// costs nothing however large that is. It stops all threads by ptrace, without a signal and without
// their help, reads their registers, and holds them until the crashed process ends. A process of
// its own, since a thread cannot trace its siblings.
//
// It uses raw system calls and the fields below and nothing else; it blocks all signals, and it may
// be killed at any moment.

/// What the tracer was told. Written by the crashing thread.
enum class TracerCommand : std::uint32_t {
  Prepare,  ///< wait
  Stop,     ///< stop all threads and read their registers
  Yield,    ///< let all go on for a moment, and stop them again
};

inline constexpr std::uint32_t kTracerCommands = 4;

/// What crashing thread and tracer share.
struct TracerState {
  pid_t process = 0;      ///< the crashed one
  pid_t crashThread = 0;  ///< which is not stopped, but for the moment of reading its registers
  int taskDirectory = -1;
  /// A TracerCommand + kTracerCommands * the number of commands so far; a futex.
  std::atomic<std::uint32_t> command{0};
  std::atomic<std::uint32_t> done{0};   ///< how many commands were carried out; a futex
  std::atomic<std::uint32_t> stops{0};  ///< signs of life: a thread has stopped, or will
  std::atomic<pid_t> tid{0};            ///< of the tracer; cleared by the kernel at its end
};
extern TracerState g_tracer;

/// How long the tracer waits for a thread to stop when no other one has, in nanoseconds. On a busy
/// machine hundreds of threads that compute stop one by one, as the scheduler comes to them.
inline constexpr std::int64_t kStopBudget = 250'000'000;
/// How long it tries to stop all threads in any case.
inline constexpr std::int64_t kStopLimit = 5'000'000'000;
/// How long threads go on at TracerCommand::Yield, in nanoseconds.
inline constexpr std::int64_t kYield = 2'000'000;
/// How long it tries to stop them again after that: there may be several yields.
inline constexpr std::int64_t kYieldLimit = 1'000'000'000;
/// After so many seconds the kernel kills the tracer, should the crashed process not end.
inline constexpr std::int64_t kTracerLife = 600;

/// The tracer's function. Tracer; never returns.
int RunTracer(void*);

/// Whether `tid` would go on if the processor came to it; one that waits in the kernel for good
/// would not. `folder` leads from the task directory of the crashed process to that of `tid`. Raw
/// system calls only. Crashed process, tracer.
bool IsRunnable(const char* folder, pid_t tid);

/// The signal whose delivery a seized thread was stopped at, to be passed on when it goes on; 0
/// when it was stopped by the interrupt (linux-6.1 kernel/signal.c, ptrace_do_notify: an event stop
/// has its event above SIGTRAP). Raw system calls only; the caller is the thread's tracer.
long DeliveredSignal(pid_t tid);

}  // namespace tarvo::crashhandler
