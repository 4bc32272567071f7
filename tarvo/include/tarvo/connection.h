#pragma once

#include <atomic>
#include <cstdint>

#include "tarvo/framework.h"
#include "tarvo/registration.h"

namespace tarvo {

/// Changes whenever a type of the SDK changes; host and module must agree.
inline constexpr std::uint32_t kSdkVersion = 1;

/// What a module exports as `g_tarvo`, the only thing the host looks for in it. The first two
/// members keep their places in every version, so that a host can refuse a module of another one.
///
/// Loading: the host opens the library, finds `g_tarvo`, checks the version, sets `framework` and
/// the library's `g_CpuYieldDelegate`, and calls `registerDeclarations`.
struct Connection {
  std::uint32_t sdkVersion = kSdkVersion;
  std::uint32_t size = sizeof(Connection);
  const char* moduleId = nullptr;  ///< "net.tarvo.…"
  void (*registerDeclarations)(Registration&) = nullptr;
  Framework* framework = nullptr;
};

/// What a module exports as `g_CpuYieldDelegate`: called by a thread that spins for a lock.
using CpuYieldDelegate = void (*)();

/// A lock for a few instructions' work. Waits by calling the module's CPU yield delegate.
class SpinLock {
 public:
  explicit constexpr SpinLock(const CpuYieldDelegate& yield) noexcept : yield_(yield) {}

  void lock() noexcept {
    while (locked_.exchange(true, std::memory_order_acquire))
      if (yield_ != nullptr) yield_();
  }
  void unlock() noexcept { locked_.store(false, std::memory_order_release); }

 private:
  const CpuYieldDelegate& yield_;
  std::atomic<bool> locked_{false};
};

}  // namespace tarvo
