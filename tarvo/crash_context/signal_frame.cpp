#include "crash_context/signal_frame.h"

#include <string.h>
#include <sys/syscall.h>

#include <cstddef>
#include <cstdint>

#include "crash_context/raw_system_call.h"
#include "crash_context/readable_memory.h"

namespace tarvo {
namespace {

/// The kernel's ucontext, which is a part of the C library's; the facts stand right behind it.
constexpr std::size_t kContextSize = offsetof(ucontext_t, uc_sigmask) + sizeof(std::uint64_t);
static_assert(kContextSize == 304);

/// How far the frame is looked for: handlers in between have stacks of their own size.
constexpr std::size_t kSearchedBytes = 256 << 10;

/// The kernel's struct sigaction.
struct KernelAction {
  void* handler;
  unsigned long flags;
  std::uint64_t restorer;
  std::uint64_t mask;
};

std::uint64_t g_trampoline = 0;

/// rt_sigreturn as the C libraries call it: mov $15, %rax or %eax; syscall.
bool IsTrampoline(std::uint64_t address) {
  if (address == 0) return false;
  if (address == g_trampoline) return true;
  if (!IsReadable(address) || !IsReadable(address + sizeof(std::uint64_t))) return false;
  const auto* code = reinterpret_cast<const void*>(address);
  return memcmp(code, "\x48\xc7\xc0\x0f\0\0\0\x0f\x05", 9) == 0 ||
         memcmp(code, "\xb8\x0f\0\0\0\x0f\x05", 7) == 0;
}

std::uint64_t WordBefore(std::uint64_t context) {
  return *reinterpret_cast<const std::uint64_t*>(context - sizeof(std::uint64_t));
}

const siginfo_t* InfoOf(std::uint64_t context) {
  return reinterpret_cast<const siginfo_t*>(context + kContextSize);
}

/// The code segment of 64-bit programs (linux-6.1 arch/x86/include/asm/segment.h, __USER_CS).
constexpr std::uint64_t kCodeSegment = 0x33;

bool IsFrame(std::uint64_t context) {
  if (context < kPage || context % 16 != 0) return false;
  // It takes less than a page, so the words at its ends stand for all.
  const std::uint64_t last = context + kContextSize + sizeof(siginfo_t) - sizeof(std::uint64_t);
  if (!IsReadable(context - sizeof(std::uint64_t)) || !IsReadable(last) ||
      !IsTrampoline(WordBefore(context)))
    return false;
  const auto* frame = reinterpret_cast<const ucontext_t*>(context);
  return (static_cast<std::uint64_t>(frame->uc_mcontext.gregs[REG_CSGSFS]) & 0xffff) ==
         kCodeSegment;
}

/// Above `here` on its stack; 0 when there is none.
std::uint64_t SearchFrame(std::uint64_t here) {
  if (g_trampoline == 0) return 0;
  for (std::uint64_t at = here; at < here + kSearchedBytes; at += 16) {
    if ((at == here || at % kPage == 0) && !IsReadable(at)) return 0;
    if (WordBefore(at) == g_trampoline && IsFrame(at)) return at;
  }
  return 0;
}

}  // namespace

void PrepareSignalFrames() {
  KernelAction action{};
  if (RawSystemCall(SYS_rt_sigaction, SIGSEGV, nullptr, &action, sizeof(action.mask)) == 0)
    g_trampoline = action.restorer;
}

SignalFrame FindSignalFrame(int signal, const siginfo_t* info, void* context) {
  auto found = reinterpret_cast<std::uint64_t>(context);
  if (InfoOf(found) != info || !IsFrame(found))
    found = SearchFrame(reinterpret_cast<std::uint64_t>(__builtin_frame_address(0)));
  if (found == 0) return {};
  const siginfo_t* facts = InfoOf(found);
  return {facts->si_signo == signal ? facts : nullptr, reinterpret_cast<ucontext_t*>(found)};
}

bool IsSignalTrampoline(std::uint64_t address) { return address != 0 && address == g_trampoline; }

std::uint64_t TrampolineOf(const SignalFrame& frame) {
  return WordBefore(reinterpret_cast<std::uint64_t>(frame.context));
}

}  // namespace tarvo
