#include "linux/linux_crashhandler/walking/stack_capture.h"

#include <errno.h>
#include <time.h>

#include <new>

#include "linux/linux_crashhandler/capture.h"
#include "linux/linux_crashhandler/facts/thread_names.h"
#include "linux/linux_crashhandler/facts/thread_place.h"
#include "linux/linux_crashhandler/facts/thread_table.h"
#include "linux/linux_crashhandler/stopping/thread_stop.h"

namespace tarvo::crashhandler {
namespace {

/// For one walk and for all of them, in microseconds. A walk takes some ten.
constexpr long kWalk = 20'000;
constexpr std::int64_t kAllWalks = 500'000;

std::int64_t Microseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * std::int64_t{1'000'000} + now.tv_nsec / 1000;
}

/// False when the first frame was not even left in time, and is to be tried again: the unwinder may
/// wait for a lock that a stopped thread holds.
bool Walk(ThreadEntry& thread, bool isLastTry) {
  new (&thread.stack) Stack;
  WalkGuarded(WalkRegisters::From(thread.registers.general), thread.stack, [&](const auto& step) {
    if (RunLimited(kWalk, step)) return true;
    thread.isHeldUp = !isLastTry && WasOverdue() && thread.stack.count <= 1;
    thread.stack.isUnwinderHeld = WasOverdue();
    return thread.isHeldUp;
  });
  return !thread.isHeldUp;
}

bool IsStopped(const ThreadEntry& thread, pid_t self) {
  return thread.tid != self && thread.stop.load() == StopState::Stopped && !thread.isKernelWorker;
}

bool WalkAll(pid_t self, std::int64_t end, bool isLastTry) {
  bool isComplete = true;
  for (ThreadEntry& thread : g_threadTable) {
    if (!IsStopped(thread, self) || (isLastTry && !thread.isHeldUp)) continue;
    if (Microseconds() > end) return false;
    thread.isHeldUp = false;
    isComplete = Walk(thread, isLastTry) && isComplete;
  }
  return isComplete;
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
  const auto walk = [&](bool isLastTry) {
    const bool isComplete = WalkAll(self, Microseconds() + kAllWalks, isLastTry);
    if (crashed != nullptr && crashed->isHeldUp) WalkCrashedThread(self, frame);
    return isComplete && (crashed == nullptr || !crashed->isHeldUp);
  };
  if (!walk(false) && YieldToThreads()) walk(true);
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
