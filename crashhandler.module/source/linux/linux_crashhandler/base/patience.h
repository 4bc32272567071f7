#pragma once

#include <sys/syscall.h>
#include <time.h>

#include <cstdint>

#include "crash_context/raw_system_call.h"

namespace tarvo::crashhandler {

/// Nanoseconds of CLOCK_MONOTONIC. By a raw call, so that the tracer may ask too. Any thread.
inline std::int64_t MonotonicTime() {
  timespec now{};
  RawSystemCall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
  return now.tv_sec * std::int64_t{1'000'000'000} + now.tv_nsec;
}

/// How long others are waited for: so long since their last sign of life, and so long in all, in
/// nanoseconds. By the clock and not by counting sleeps: where the processor is not to be had, a
/// sleep of two milliseconds takes a hundred. Any thread.
class Patience {
 public:
  Patience(std::int64_t sinceSign, std::int64_t inAll) : sinceSign_(sinceSign), inAll_(inAll) {}

  void NoteSign() { sign_ = MonotonicTime(); }
  [[nodiscard]] std::int64_t SinceSign() const { return MonotonicTime() - sign_; }
  [[nodiscard]] bool IsOver() const {
    const std::int64_t now = MonotonicTime();
    return now > sign_ + sinceSign_ || now > begin_ + inAll_;
  }

 private:
  const std::int64_t sinceSign_;
  const std::int64_t inAll_;
  const std::int64_t begin_ = MonotonicTime();
  std::int64_t sign_ = begin_;
};

}  // namespace tarvo::crashhandler
