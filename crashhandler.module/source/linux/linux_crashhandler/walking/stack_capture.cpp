#include "linux/linux_crashhandler/walking/stack_capture.h"

#include <errno.h>

#include <new>

#include "linux/linux_crashhandler/base/patience.h"
#include "linux/linux_crashhandler/capture.h"
#include "linux/linux_crashhandler/facts/thread_names.h"
#include "linux/linux_crashhandler/facts/thread_place.h"
#include "linux/linux_crashhandler/facts/thread_table.h"
#include "linux/linux_crashhandler/stopping/thread_stop.h"

namespace tarvo::crashhandler {
namespace {

/// For one walk, in microseconds, and for all of them, in nanoseconds. A walk takes some ten
/// microseconds.
constexpr long kWalk = 20'000;
constexpr std::int64_t kAllWalks = 500'000'000;
/// How often, while walks are held up. The one that holds the lock is another one each time.
constexpr int kTries = 6;

bool IsStopped(const ThreadEntry& thread, pid_t self) {
  return thread.tid != self && thread.stop.load() == StopState::Stopped && !thread.isKernelWorker;
}

/// False when the walk was not done in time, and is to be tried again: the unwinder may wait for a
/// lock that a stopped thread holds. Without the unwinder all callers are guesses.
bool Walk(ThreadEntry& thread, bool withUnwinder) {
  Stack& stack = *new (&thread.stack) Stack;
  stack.isUnwinderHeld = !withUnwinder;
  thread.isHeldUp = false;
  WalkGuarded(WalkRegisters::From(thread.registers.general), stack, [&](const auto& step) {
    if (RunLimited(kWalk, step)) return true;
    thread.isHeldUp = withUnwinder && WasOverdue();
    return thread.isHeldUp;
  });
  return !thread.isHeldUp;
}

/// Walks those that were not walked yet; false at the first one that is held up.
bool WalkAll(pid_t self, bool withUnwinder) {
  const std::int64_t end = MonotonicTime() + kAllWalks;
  for (ThreadEntry& thread : g_threadTable) {
    if (!IsStopped(thread, self) || (thread.stack.count != 0 && !thread.isHeldUp)) continue;
    if (MonotonicTime() > end) return true;
    if (!Walk(thread, withUnwinder)) return false;
  }
  return true;
}

const char* WhyNoFrames(const ThreadEntry& thread, bool isInKernel) {
  if (thread.framesMissing != nullptr) return thread.framesMissing;
  if (thread.isKernelWorker) return kKernelWorker;
  switch (thread.stop.load()) {
    case StopState::Interrupted:
      return isInKernel ? "it did not stop: it waits in the kernel" : "it did not stop in time";
    case StopState::Stopped:
      return "its stack could not be walked";
    default:
      return "it could not be stopped";
  }
}

const char* WhyNoRegisters(const ThreadEntry& thread) {
  if (thread.isKernelWorker) return kKernelWorker;
  if (thread.stop.load() == StopState::Interrupted) return "it did not stop";
  if (thread.error != 0) return ErrorText(thread.error);
  return "it could not be traced";
}

}  // namespace

void WalkCrashedThread(pid_t self, const SignalFrame& frame) {
  ThreadEntry* thread = g_threadTable.Find(self);
  if (thread == nullptr) return;
  Stack& stack = *new (&thread->stack) Stack;
  thread->isHeldUp = false;
  const auto guarded = [&](const auto& step) {
    const bool isDone = RunLimited(kWalk, step);
    if (WasOverdue()) {
      thread->isHeldUp = true;
      stack.isUnwinderHeld = true;
    }
    return isDone;
  };
  const std::uint64_t trampoline = frame.context == nullptr ? 0 : TrampolineOf(frame);
  if (!guarded([&] { WalkHandler(trampoline, stack); })) {
    stack.count = 0;
    stack.Add(reinterpret_cast<std::uint64_t>(__builtin_return_address(0)));
    if (trampoline != 0) stack.Add(trampoline);
  }
  if (frame.context != nullptr)
    WalkGuarded(WalkRegisters::From(frame.context->uc_mcontext), stack, guarded);
}

void WalkStoppedThreads(pid_t self, const SignalFrame& frame) {
  const ThreadEntry* crashed = g_threadTable.Find(self);
  for (int i = 0; i < kTries; ++i) {
    if (crashed != nullptr && crashed->isHeldUp) WalkCrashedThread(self, frame);
    const bool isHeld = crashed != nullptr && crashed->isHeldUp;
    if ((!isHeld && WalkAll(self, true)) || !YieldToThreads()) break;
  }
  WalkAll(self, false);
}

void CompleteStacks() {
  for (ThreadEntry& thread : g_threadTable) {
    if (thread.stop.load() == StopState::Ended) continue;
    if (!thread.hasRegisters || thread.isKernelWorker)
      thread.registersMissing = WhyNoRegisters(thread);
    const RequestState request = thread.request.load();
    if (request == RequestState::Asked || request == RequestState::Claimed) thread.stack.count = 0;
    if (thread.stack.count != 0) continue;
    const std::uint64_t place = ReadThreadPlace(thread.tid).programCounter;
    thread.framesMissing = WhyNoFrames(thread, place != 0);
    if (place != 0 && !thread.isKernelWorker) thread.stack.Add(place);
  }
}

}  // namespace tarvo::crashhandler
