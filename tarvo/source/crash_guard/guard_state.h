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
//   the report's path          report_pattern    before a crash
//   the report's file          report_file       crashed process
//   its name, and the signal   after_report      crashed process
//
// The contexts and their rules stand in crash_context/rules.h.

#include <signal.h>
#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstdint>

#include "crash_context/crash_owner.h"
#include "crash_context/fatal_signals.h"
#include "crash_context/previous_action.h"

namespace tarvo {

/// What the handlers need of the time before the crash. Written before the guard's actions are
/// installed, and when they are gone; read at a crash.
struct GuardState {
  /// The actions that were there before the modules were initialised, as in kCrashSignals.
  std::array<SignalAction, kCrashSignals.size()> earlier;
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

/// Whose crash is captured.
extern CrashOwner g_crashOwner;

}  // namespace tarvo
