#include "crash_guard/guard_state.h"

#include <unistd.h>

namespace tarvo {

constinit GuardState g_guard{};
constinit std::atomic<std::uint64_t> g_crashOwner{0};

namespace {

std::uint64_t OwnerWord(pid_t self) {
  return std::uint64_t{static_cast<std::uint32_t>(getpid())} << 32 |
         static_cast<std::uint32_t>(self);
}

}  // namespace

bool IsCrashing() { return g_crashOwner.load() >> 32 == static_cast<std::uint32_t>(getpid()); }

bool OwnCrash(pid_t self) {
  std::uint64_t nobody = 0;
  return g_crashOwner.compare_exchange_strong(nobody, OwnerWord(self));
}

bool IsOwner(pid_t self) { return g_crashOwner.load() == OwnerWord(self); }

std::size_t IndexOf(int signal) {
  std::size_t index = 0;
  while (index < kGuardedSignals.size() - 1 && kGuardedSignals[index] != signal) ++index;
  return index;
}

}  // namespace tarvo
