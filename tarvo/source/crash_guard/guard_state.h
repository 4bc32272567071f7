#pragma once

// The crash guard on one page.
//
//   what                       file              runs in
//   start and stop             crash_guard       before a crash
//   thrown type and message    terminate         before a crash, in std::terminate
//   threads' starts            thread_start      before a crash
//   threads' alternate stacks  alternate_stack   before a crash
//   what SIG_DFL means         default_action    any context
//   who gets the signal        signal_entry      crashed process
//   signal, code, registers    fault_facts       crashed process
//   end of a late capture      deadline          crashed process
//   going on without threads   stuck_threads     crashed process
//   the report's path          report_pattern    before a crash
//   the report's file          report_file       crashed process
//   its name, and the signal   after_report      crashed process
//
// "Crashed process" is the crashing thread inside its signal handler: locks may be held for ever,
// the heap may be broken, any pointer may be wild. What runs there makes system calls and touches
// the state below and nothing else; it is built without exceptions, RTTI and sanitizers.

#include <signal.h>
#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace tarvo {

using SignalAction = struct sigaction;

/// The signals that the guard handles. All but SIGABRT are the capture's own.
inline constexpr std::array kGuardedSignals = {SIGSEGV, SIGILL, SIGBUS, SIGSYS,
                                               SIGTRAP, SIGFPE, SIGABRT};

/// What the handlers need of the time before the crash. Written before the guard's actions are
/// installed, and when they are gone; read at a crash.
struct GuardState {
  /// The actions that were there before the modules were initialised, as in kGuardedSignals.
  std::array<SignalAction, kGuardedSignals.size()> earlier;
  SignalAction earlierHangup;
  /// The capture's action, and its one of SIGHUP.
  SignalAction capture;
  SignalAction captureHangup;
  std::int64_t deadline;
  bool reraise;
  /// Whether the guard is on. A program's handler may hold the guard's action and call it later.
  std::atomic<bool> active;
};
extern GuardState g_guard;

/// Whose crash is captured: process id and thread id in one word; 0 while there is none.
extern std::atomic<std::uint64_t> g_crashOwner;
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

/// Whether a crash of this process is being captured; a process that was forked meanwhile has its
/// parent's word. Any context.
bool IsCrashing();

/// Makes the calling thread the owner of the process's crash, if there was none. Crashed process.
bool OwnCrash(pid_t self);

/// Whether thread `self` is the owner. Any context.
bool IsOwner(pid_t self);

/// The place of a guarded signal in kGuardedSignals. Any context.
std::size_t IndexOf(int signal);

}  // namespace tarvo
