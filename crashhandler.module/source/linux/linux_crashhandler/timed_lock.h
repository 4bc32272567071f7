#pragma once

#include <pthread.h>
#include <time.h>

namespace tarvo::crashhandler {

/// How often a wait of the capture looks whether the other side is still there, in nanoseconds.
inline constexpr long kLivenessCheckInterval = 20'000'000;

/// Takes `mutex` if that is possible within `nanoseconds` (less than a second). The wait is a futex
/// call and nothing else (glibc 2.36 nptl/pthread_mutex_timedlock.c). Crashed process.
inline bool LockWithin(pthread_mutex_t& mutex, long nanoseconds) {
  timespec until{};
  clock_gettime(CLOCK_MONOTONIC, &until);
  until.tv_nsec += nanoseconds;
  if (until.tv_nsec >= 1'000'000'000) {
    until.tv_nsec -= 1'000'000'000;
    ++until.tv_sec;
  }
  return pthread_mutex_clocklock(&mutex, CLOCK_MONOTONIC, &until) == 0;
}

}  // namespace tarvo::crashhandler
