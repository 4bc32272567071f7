#pragma once

#include <atomic>
#include <cstdint>

#include "tarvo/framework.h"
#include "tarvo/registration.h"

namespace tarvo {

/// Moved by hand when modules of before would misunderstand the host, or the host them, although
/// all layouts are the same; docs/abi.md tells when. Since 2 there is a build tag.
inline constexpr std::uint32_t kSdkVersion = 2;

/// How one side of the border was built, as text that ends with a NUL ("tarvo/build_tag.h").
struct BuildTag {
  char text[248] = {};
};

/// What a module exports as `g_tarvo`, the only thing the host looks for in it. The first three
/// members keep their places in every version, only the tag's room may change: it ends with its
/// NUL or with the exported object. So a host can refuse a module of any other version by name.
///
/// Loading: the host opens the library, finds `g_tarvo`, compares the build tags, sets `framework`
/// and the library's `g_CpuYieldDelegate`, and calls `registerDeclarations`.
struct Connection {
  std::uint32_t sdkVersion = kSdkVersion;
  std::uint32_t size = sizeof(Connection);
  BuildTag buildTag;
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
