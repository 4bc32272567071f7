#pragma once

#include <errno.h>
#include <sys/syscall.h>

#include <cstdint>

#include "crash_context/raw_system_call.h"

namespace tarvo {

/// Memory is readable or not by the page, at the least.
inline constexpr std::uint64_t kPage = 4096;

/// Whether the word at `address` can be read, without reading it: the kernel copies the set before
/// it looks at the first argument (linux-6.1 kernel/signal.c, rt_sigprocmask). Any context.
inline bool IsReadable(std::uint64_t address) {
  const auto* set = reinterpret_cast<const void*>(address);
  return RawSystemCall(SYS_rt_sigprocmask, -1, set, nullptr, sizeof(std::uint64_t)) != -EFAULT;
}

}  // namespace tarvo
