#include "crash_context/crash_owner.h"

#include <unistd.h>

namespace tarvo {
namespace {

std::uint64_t WordOf(pid_t thread) {
  return std::uint64_t{static_cast<std::uint32_t>(getpid())} << 32 |
         static_cast<std::uint32_t>(thread);
}

bool IsOfThisProcess(std::uint64_t word) {
  return word >> 32 == static_cast<std::uint32_t>(getpid());
}

}  // namespace

bool CrashOwner::Take(pid_t self) {
  std::uint64_t owner = word_.load();
  do {
    if (IsOfThisProcess(owner)) return false;
  } while (!word_.compare_exchange_weak(owner, WordOf(self)));
  return true;
}

void CrashOwner::GiveBack() { word_.store(0); }

bool CrashOwner::IsTaken() const { return IsOfThisProcess(word_.load()); }

bool CrashOwner::IsHeldBy(pid_t self) const { return word_.load() == WordOf(self); }

}  // namespace tarvo
