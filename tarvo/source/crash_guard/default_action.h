#pragma once

#include "crash_guard/guard_state.h"

namespace tarvo {

// A program's own crash handler often ends by setting SIG_DFL and raising the signal again, and
// some programs set all signals to SIG_DFL when they start. For the guarded signals that would be
// the end of the capture, so the host library defines `sigaction`, `signal` and its variants in
// front of the C library's: with the guard on, SIG_DFL stands for the guard's action. All else goes
// through as it is, and all of it while a crash is captured. A program that asks gets the action
// that is really there.

/// The guard's action of a signal: the capture's, on the alternate stack. Any context.
SignalAction GuardingAction();

/// How often SIG_DFL has become the guard's action. Any context.
unsigned DefaultsReplaced();

}  // namespace tarvo
