#include "linux/linux_crashhandler/stack_handler.h"

#include <errno.h>
#include <ucontext.h>
#include <unwind.h>

#include "linux/linux_crashhandler/bad_call.h"
#include "linux/linux_crashhandler/capture.h"
#include "linux/linux_crashhandler/capture_memory.h"
#include "linux/linux_crashhandler/fault_guard.h"
#include "linux/linux_crashhandler/signals.h"
#include "linux/linux_crashhandler/stack_request.h"

namespace tarvo::crashhandler {
namespace {

/// The innermost frames are kept.
constexpr int kMaximumFrames = 99;

/// The stack outside the handler. The unwinder is used without the C library's `backtrace` around
/// it: the entries are the same, and what was found before a fault in the middle is kept.
struct Walk {
  std::uint64_t handlerFrame = 0;  ///< the frame address of StackHandler
  volatile int count = 0;
  std::uint64_t addresses[kMaximumFrames];
  std::uint64_t frameAddress = 0;
};

_Unwind_Reason_Code AppendEntry(_Unwind_Context* context, void* to) {
  auto& walk = *static_cast<Walk*>(to);
  const std::uint64_t address = _Unwind_GetIP(context);
  const std::uint64_t frameAddress = _Unwind_GetCFA(context);
  // The handler and what it has called, which is this walk.
  if (frameAddress <= walk.handlerFrame) return _URC_NO_REASON;
  const int count = walk.count;
  // No progress: a damaged or hand-made frame that is its own caller.
  if (count > 0 && walk.addresses[count - 1] == address && walk.frameAddress == frameAddress)
    return _URC_END_OF_STACK;
  walk.frameAddress = frameAddress;
  walk.addresses[count] = address;
  walk.count = count + 1;
  return count + 1 == kMaximumFrames ? _URC_END_OF_STACK : _URC_NO_REASON;
}

/// Puts the stack into the current record. Its first entry is the trampoline that the kernel
/// returns the handler to, which stands for the interrupted instruction.
void StoreFrames(Walk& walk, std::uint64_t interrupted) {
  int count = walk.count;
  // The unwinder may find a null return address above the outermost function.
  if (count > 0 && walk.addresses[count - 1] == 0) --count;
  if (count < 1 || currentThreadRecord == nullptr) return;
  walk.addresses[0] = interrupted;
  for (int i = 0; i < count; ++i)
    if (StackFrame* frame = Append(currentThreadRecord->frames)) frame->sp = walk.addresses[i];
}

}  // namespace

void StackHandler(int signal, siginfo_t* info, void* context) {
  const int savedError = errno;
  const pid_t self = OwnThreadId();
  pid_t wanted = self;
  if (!requestedThread.compare_exchange_strong(wanted, kClaimed)) {
    if (!g_captureOwner.IsTaken()) ForwardHangup(signal, info, context);
    errno = savedError;
    return;
  }
  pthread_mutex_lock(&threadSlotReady);
  auto* interrupted = static_cast<ucontext_t*>(context);
  const mcontext_t before = interrupted->uc_mcontext;
  const bool mended = MendBadCall(self, nullptr, interrupted);
  Walk walk;
  walk.handlerFrame = reinterpret_cast<std::uint64_t>(__builtin_frame_address(0));
  RunGuarded(self, [&] { _Unwind_Backtrace(AppendEntry, &walk); });
  const auto pc = static_cast<std::uint64_t>(interrupted->uc_mcontext.gregs[REG_RIP]);
  RunGuarded(self, [&] { StoreFrames(walk, pc); });
  // The thread goes on where it was, to its own crash if need be.
  if (mended) interrupted->uc_mcontext = before;
  requestedThread.store(0);
  pthread_mutex_unlock(&threadSlotFree);
  errno = savedError;
}

void WarmUnwinder() {
  Walk walk;
  _Unwind_Backtrace(AppendEntry, &walk);
}

}  // namespace tarvo::crashhandler
