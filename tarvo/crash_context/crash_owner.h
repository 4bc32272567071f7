#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>

namespace tarvo {

/// Whose crash is dealt with: process id and thread id in one word, 0 while there is none.
///
/// A child process starts with a copy of its parent's word, and a vfork child leaves its own in the
/// parent's memory. Neither is the process that it is found in, so such a word counts as none.
class CrashOwner {
 public:
  constexpr CrashOwner() = default;
  CrashOwner(const CrashOwner&) = delete;
  CrashOwner& operator=(const CrashOwner&) = delete;

  /// Makes thread `self` the owner of this process's crash, unless it has one. Crashed process.
  bool Take(pid_t self);
  /// Gives the word back: the next crash is a new one. The owner only. Crashed process.
  void GiveBack();

  /// Whether a crash of this process has an owner. Any context.
  [[nodiscard]] bool IsTaken() const;
  /// Whether that is thread `self`. Any context.
  [[nodiscard]] bool IsHeldBy(pid_t self) const;

 private:
  std::atomic<std::uint64_t> word_{0};
  static_assert(std::atomic<std::uint64_t>::is_always_lock_free);
};

}  // namespace tarvo
