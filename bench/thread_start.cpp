// What the crash guard adds to a thread's start and end: pthread_create and pthread_join of a
// thread that does nothing, without a host and with a guarded one, in turns; the best round of
// each. bench/exec runs it.

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>

#include "tarvo/host/host.h"

namespace {

constexpr int kRounds = 20;
constexpr int kThreads = 2000;

/// Microseconds for a thread.
double Measure() {
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < kThreads; ++i) {
    pthread_t thread;
    if (pthread_create(&thread, nullptr, [](void* nothing) { return nothing; }, nullptr) == 0)
      pthread_join(thread, nullptr);
  }
  const std::chrono::duration<double, std::micro> time = std::chrono::steady_clock::now() - start;
  return time.count() / kThreads;
}

}  // namespace

int main() {
  double plain = 1e9;
  double guarded = 1e9;
  for (int round = 0; round < kRounds; ++round) {
    plain = std::min(plain, Measure());
    const auto host =
        tarvo::Host::Start({.modules = {CRASHHANDLER_MODULE}, .crashGuard = {.enabled = true}});
    if (!host) {
      std::fprintf(stderr, "%s\n", host.GetError().Text().ToStdString().c_str());
      return 1;
    }
    guarded = std::min(guarded, Measure());
  }
  std::printf("a thread's start and end, plain    %8.1f us\n", plain);
  std::printf("a thread's start and end, guarded  %8.1f us   guarded / plain %.2f, %+.1f us\n",
              guarded, guarded / plain, guarded - plain);
  return 0;
}
