#include "source/crash_guard/guard_state.h"

#include <unistd.h>

namespace tarvo {

constinit GuardState g_guard{};
constinit std::atomic<std::uint64_t> g_crashOwner{0};

bool IsCrashing() { return g_crashOwner.load() >> 32 == static_cast<std::uint32_t>(getpid()); }

bool OwnCrash(pid_t self) {
  const std::uint64_t own =
      std::uint64_t{static_cast<std::uint32_t>(getpid())} << 32 | static_cast<std::uint32_t>(self);
  std::uint64_t nobody = 0;
  return g_crashOwner.compare_exchange_strong(nobody, own);
}

std::size_t IndexOf(int signal) {
  std::size_t index = 0;
  while (index < kGuardedSignals.size() - 1 && kGuardedSignals[index] != signal) ++index;
  return index;
}

}  // namespace tarvo
