#include "linux/linux_crashhandler/fault_guard.h"

namespace tarvo::crashhandler {

FaultGuard g_faultGuard;

void LeaveGuardedStep(pid_t self) {
  if (g_faultGuard.tid.load(std::memory_order_acquire) == self) siglongjmp(g_faultGuard.end, 1);
}

}  // namespace tarvo::crashhandler
