#include "crash_guard/alternate_stack.h"

#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/random.h>

#include <atomic>
#include <cstdint>

#include "tarvo/host/crash_guard.h"

namespace tarvo {
namespace {

constexpr std::size_t kPage = 4096;
constexpr std::size_t kWhole = kAlternateStackSize + 2 * kPage;
/// 20 TiB, and up to 16 TiB more: above the addresses of programs that are not relocated and the
/// address sanitizer's shadow, below all that the kernel chooses (from 42.7 TiB upwards).
constexpr std::uint64_t kLowest = std::uint64_t{20} << 40;
constexpr std::uint64_t kSpread = std::uint64_t{16} << 40;
/// Places that are tried. Should all be taken, the kernel chooses: the thread has its alternate
/// stack all the same, and the capture may lose its outer frames.
constexpr int kAttempts = 4;

pthread_key_t g_key;
/// Where the next one is to go. Addresses are not used again: there is room for 90 million threads,
/// and the kernel chooses when there is none.
constinit std::atomic<std::uint64_t> g_next{0};

std::uint64_t FirstAddress() {
  std::uint64_t random = 0;
  // Without random bytes the addresses can be foretold; nothing else depends on them.
  if (getrandom(&random, sizeof(random), GRND_NONBLOCK) < 0) random = 0;
  return kLowest + random % kSpread / kPage * kPage;
}

char* WholeOf(void* stack) { return static_cast<char*>(stack) - kPage; }

/// At a thread's end. A runtime that has put another alternate stack in the place of this one, or
/// has taken it away, may have released its memory, and others may have it by now.
void Release(void* stack) {
  stack_t current{};
  sigaltstack(nullptr, &current);
  if (current.ss_sp != stack || (current.ss_flags & SS_DISABLE) != 0) {
    munmap(WholeOf(stack), kPage);
    munmap(static_cast<char*>(stack) + kAlternateStackSize, kPage);
    return;
  }
  const stack_t none{.ss_sp = nullptr, .ss_flags = SS_DISABLE, .ss_size = 0};
  // Refused while the thread runs on it: its end came inside a handler.
  if (sigaltstack(&none, nullptr) == 0) UnmapAlternateStack(stack);
}

}  // namespace

bool PrepareAlternateStacks() {
  if (g_next.load() != 0) return true;
  if (pthread_key_create(&g_key, Release) != 0) return false;
  g_next.store(FirstAddress());
  return true;
}

void* MapAlternateStack() {
  void* whole = nullptr;
  for (int i = 0; i < kAttempts; ++i) {
    if (whole != nullptr) munmap(whole, kWhole);
    auto* wanted = reinterpret_cast<void*>(g_next.fetch_add(kWhole));
    whole = mmap(wanted, kWhole, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (whole == MAP_FAILED) return nullptr;
    if (whole == wanted) break;
  }
  void* stack = static_cast<char*>(whole) + kPage;
  if (mprotect(stack, kAlternateStackSize, PROT_READ | PROT_WRITE) == 0) return stack;
  munmap(whole, kWhole);
  return nullptr;
}

void UnmapAlternateStack(void* stack) { munmap(WholeOf(stack), kWhole); }

void UseAlternateStack(void* stack) {
  stack_t before{};
  sigaltstack(nullptr, &before);
  const stack_t own{.ss_sp = stack, .ss_flags = 0, .ss_size = kAlternateStackSize};
  if ((before.ss_flags & SS_DISABLE) == 0 || pthread_setspecific(g_key, stack) != 0) {
    UnmapAlternateStack(stack);
  } else {
    sigaltstack(&own, nullptr);
  }
}

}  // namespace tarvo
