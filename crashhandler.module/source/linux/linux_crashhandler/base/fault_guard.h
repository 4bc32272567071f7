#pragma once

#include <setjmp.h>
#include <sys/types.h>

#include <atomic>

namespace tarvo::crashhandler {

// A step that may fault or hang (reading a stack that may be garbage, unwinding it while another
// thread lies stopped inside the unwinder, asking the loader) runs guarded: a fatal signal of its
// thread, or the end of its time, ends the step instead of the process or the capture.
//
// Each thread has its own steps: the crashing one, and those that are asked for their stacks. A
// step may contain another one.

struct GuardedStep {
  sigjmp_buf end;
  GuardedStep* outer = nullptr;
};

/// The innermost steps of one thread.
struct FaultGuard {
  std::atomic<GuardedStep*> innermost{nullptr};
};

/// The crashing thread's.
extern FaultGuard g_faultGuard;

/// Leaves the innermost step of the guard, if there is one; otherwise returns. Called first in the
/// crash handler. Crashed process, signalled thread.
void LeaveGuardedStep(FaultGuard& guard);

/// Runs `step`; false when it faulted or took too long and was cut short, with whatever it had
/// written until then. What `step` reports goes into memory, not into registers: everything it
/// captures by reference is read again afterwards only through volatile or global objects. `step`
/// holds nothing that needs a destructor. Crashed process, signalled thread.
template <typename Step>
bool RunGuarded(FaultGuard& guard, const Step& step) {
  GuardedStep place;
  place.outer = guard.innermost.load(std::memory_order_relaxed);
  // The mask is saved too: the nested signal is blocked inside its handler and would stay so.
  if (sigsetjmp(place.end, 1) != 0) {
    guard.innermost.store(place.outer);
    return false;
  }
  guard.innermost.store(&place);
  step();
  guard.innermost.store(place.outer);
  return true;
}

/// Makes the timer of RunLimited, for the calling thread. Without one, steps have no limit. Crashed
/// process, once.
void PrepareStepTimer(pid_t self);

/// Whether the last limited step was ended by its time. Crashed process, capturing thread.
bool WasOverdue();

/// Starts the time of a step, or stops it (0). Crashed process, capturing thread.
void SetStepTimer(long microseconds);

/// RunGuarded in the crashing thread, for at most so long. Such steps do not contain each other.
/// Crashed process.
template <typename Step>
bool RunLimited(long microseconds, const Step& step) {
  SetStepTimer(microseconds);
  const bool isDone = RunGuarded(g_faultGuard, step);
  SetStepTimer(0);
  return isDone;
}

}  // namespace tarvo::crashhandler
