#include "linux/linux_crashhandler/walking/stack_capture.h"

#include <errno.h>
#include <string.h>
#include <time.h>

#include <string_view>

#include "crash_context/proc_files.h"
#include "linux/linux_crashhandler/capture.h"
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

void Walk(ThreadEntry& thread) {
  thread.stack.count = 0;
  memset(thread.stack.guessed, 0, sizeof(thread.stack.guessed));
  thread.stack.isCutShort = !RunLimited(
      kWalk, [&] { WalkStack(WalkRegisters::From(thread.registers.general), thread.stack); });
}

bool IsStopped(const ThreadEntry& thread, pid_t self) {
  return thread.tid != self && thread.stop.load() == StopState::Stopped;
}

/// Whether a walk came to nothing: the unwinder may wait for a lock that a stopped thread holds.
bool IsUnfinished(const ThreadEntry& thread) {
  return thread.stack.isCutShort && thread.stack.count <= 1;
}

bool WalkAll(pid_t self, std::int64_t end, bool onlyUnfinished) {
  bool isComplete = true;
  for (ThreadEntry& thread : g_threadTable) {
    if (!IsStopped(thread, self) || (onlyUnfinished && !IsUnfinished(thread))) continue;
    if (Microseconds() > end) return false;
    Walk(thread);
    isComplete = isComplete && !IsUnfinished(thread);
  }
  return isComplete;
}

/// The place at which the kernel says that a thread waits: "NUMBER ARGUMENTS… SP PC"; 0 when it
/// says nothing, for a running thread.
std::uint64_t PlaceOf(pid_t tid) {
  const int file = OpenRaw(TaskPath(tid, "syscall").Text());
  if (file < 0) return 0;
  char buffer[256];
  const ssize_t size = ReadRaw(file, buffer);
  CloseRaw(file);
  std::string_view text(buffer, static_cast<std::size_t>(size > 0 ? size : 0));
  const std::size_t start = text.rfind(" 0x");
  if (start == std::string_view::npos) return 0;
  text.remove_prefix(start + 3);
  return TakeHexadecimal(text);
}

const char* WhyNoFrames(const ThreadEntry& thread, bool isInKernel) {
  if (thread.framesMissing != nullptr) return thread.framesMissing;
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
  if (thread.stop.load() == StopState::Interrupted) return "it did not stop";
  if (thread.error != 0) return ErrorText(thread.error);
  return "it could not be traced";
}

}  // namespace

void WalkCrashedThread(pid_t self, const SignalFrame& frame) {
  ThreadEntry* thread = g_threadTable.Find(self);
  if (thread == nullptr) return;
  Stack& stack = thread->stack;
  stack.count = 0;
  if (frame.context == nullptr) {
    RunLimited(kWalk, [&] { WalkHandler(0, stack); });
    return;
  }
  RunLimited(kWalk, [&] { WalkHandler(TrampolineOf(frame), stack); });
  stack.isCutShort = !RunLimited(
      kWalk, [&] { WalkStack(WalkRegisters::From(frame.context->uc_mcontext), stack); });
}

void WalkStoppedThreads(pid_t self) {
  if (WalkAll(self, Microseconds() + kAllWalks, false)) return;
  if (YieldToThreads()) WalkAll(self, Microseconds() + kAllWalks, true);
}

void CompleteStacks() {
  for (ThreadEntry& thread : g_threadTable) {
    if (thread.stop.load() == StopState::Ended) continue;
    if (!thread.hasRegisters) thread.registersMissing = WhyNoRegisters(thread);
    const RequestState request = thread.request.load();
    if (request == RequestState::Asked || request == RequestState::Claimed) thread.stack.count = 0;
    if (thread.stack.count != 0) continue;
    const std::uint64_t place = PlaceOf(thread.tid);
    thread.framesMissing = WhyNoFrames(thread, place != 0);
    if (place != 0) thread.stack.Add(place);
  }
}

}  // namespace tarvo::crashhandler
