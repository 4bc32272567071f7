#pragma once

#include <setjmp.h>
#include <sys/types.h>

#include <atomic>

namespace tarvo::crashhandler {

// A step that may fault (reading a stack that may be garbage, unwinding it, reading a module's
// symbols while the module may be unloaded) runs guarded: a fatal signal of that thread meanwhile
// ends the step instead of the process.
//
// One guard is enough: while a signalled thread runs its step, the crashing thread waits for it.

struct FaultGuard {
  std::atomic<pid_t> tid{0};  ///< the thread inside a guarded step; 0 when none is
  sigjmp_buf end;
};
extern FaultGuard g_faultGuard;

/// Leaves the guarded step when thread `self` is inside one; otherwise returns. Called first in the
/// crash handler. Crashed process, signalled thread.
void LeaveGuardedStep(pid_t self);

/// Runs `step`; false when it faulted and was cut short, with whatever it had written until then.
/// What `step` reports goes into memory, not into registers: everything it captures by reference is
/// read again afterwards only through volatile or global objects. `step` holds nothing that needs
/// a destructor. Guards do not nest. Crashed process, signalled thread.
template <typename Step>
bool RunGuarded(pid_t self, const Step& step) {
  // The mask is saved too: the nested signal is blocked inside its handler and would stay so.
  if (sigsetjmp(g_faultGuard.end, 1) != 0) {
    g_faultGuard.tid.store(0, std::memory_order_release);
    return false;
  }
  g_faultGuard.tid.store(self, std::memory_order_release);
  step();
  g_faultGuard.tid.store(0, std::memory_order_release);
  return true;
}

}  // namespace tarvo::crashhandler
