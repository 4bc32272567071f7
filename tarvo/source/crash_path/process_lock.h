#pragma once

#include <sched.h>
#include <unistd.h>

#include <atomic>

namespace tarvo {

/// A lock for short work in a healthy process. A child that was forked while another thread held it
/// finds it free. For std::scoped_lock.
class ProcessLock {
 public:
  constexpr ProcessLock() = default;
  ProcessLock(const ProcessLock&) = delete;
  ProcessLock& operator=(const ProcessLock&) = delete;

  void lock() noexcept {
    const pid_t self = getpid();
    for (pid_t owner = 0; !owner_.compare_exchange_weak(owner, self, std::memory_order_acquire);
         owner = owner == self ? 0 : owner)
      sched_yield();
  }
  void unlock() noexcept { owner_.store(0, std::memory_order_release); }

 private:
  std::atomic<pid_t> owner_{0};
};

}  // namespace tarvo
