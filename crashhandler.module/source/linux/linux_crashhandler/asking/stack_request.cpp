#include "linux/linux_crashhandler/asking/stack_request.h"

#include <signal.h>
#include <sys/auxv.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <utility>

#include "crash_context/proc_files.h"
#include "crash_context/raw_system_call.h"
#include "crash_context/readable_memory.h"
#include "linux/linux_crashhandler/base/fault_guard.h"
#include "linux/linux_crashhandler/base/patience.h"
#include "linux/linux_crashhandler/capture.h"
#include "linux/linux_crashhandler/facts/thread_names.h"
#include "linux/linux_crashhandler/facts/thread_place.h"
#include "linux/linux_crashhandler/facts/thread_table.h"
#include "linux/linux_crashhandler/signals.h"
#include "linux/linux_crashhandler/stopping/thread_stop.h"

namespace tarvo::crashhandler {
namespace {

/// Of all requests together, in nanoseconds, since the last answer and in all. A machine that is
/// busy takes its time for hundreds of threads.
constexpr std::int64_t kPatience = 2'000'000'000;
constexpr std::int64_t kBudget = 8'000'000'000;
/// What threads that have begun to answer get to come to an end, likewise.
constexpr std::int64_t kGrace = 200'000'000;
constexpr std::int64_t kGraceOfAll = 1'000'000'000;
/// When those that have begun are told to do without the unwinder, whose lock may be held by one
/// that does not go on.
constexpr std::int64_t kHurryAfter = 1'000'000'000;
constexpr long kInterval = 2'000'000;
constexpr int kStatusEvery = 10;      ///< intervals
constexpr int kStepAsideAfter = 100;  ///< intervals; else all is done by then

/// Signals that no program blocks: the C library keeps them for itself and takes them out of every
/// mask it is given (glibc 2.36 nptl/pthread_sigmask.c). Blocked together with SIGHUP they show a
/// thread inside pthread_create, posix_spawn or its own end, where all signals wait for a moment.
constexpr std::uint64_t kReservedSignals = std::uint64_t{1} << (32 - 1) | std::uint64_t{1}
                                                                              << (33 - 1);

void SleepAnInterval() {
  const timespec time{0, kInterval};
  RawSystemCall(SYS_nanosleep, &time, nullptr);
}

/// What the handler and the unwinder use of a stack beside the kernel's frame, with some to spare.
constexpr std::uint64_t kHandlerRoom = std::uint64_t{8} << 10;
/// The part of the stack below its pointer that functions may use (System V ABI AMD64 1.0, 3.2.2).
constexpr std::uint64_t kRedZone = 128;

/// Whether a handler fits below `stackPointer`. Where the kernel's frame for it does not, SIGSEGV
/// takes the signal's place, and where that has no stack either, the process ends.
bool HasRoom(std::uint64_t stackPointer) {
  // The kernel's frame is larger where the processor has more registers.
  const std::uint64_t frame = getauxval(AT_MINSIGSTKSZ) + kRedZone;
  const std::uint64_t lowest = stackPointer - frame - kHandlerRoom;
  for (std::uint64_t at = stackPointer - kRedZone; at > lowest; at -= kPage)
    if (!IsReadable(at / kPage * kPage)) return false;
  return IsReadable(lowest);
}

/// Why the thread is not asked: it would not run a handler for SIGHUP, or not survive it. Null when
/// it is.
const char* WhyNotAsked(const ThreadEntry& thread) {
  if (thread.isKernelWorker) return kKernelWorker;
  const pid_t tid = thread.tid;
  const ThreadStatus status = ReadThreadStatus(tid);
  if (status.ended) return "the thread has ended";
  const bool blocks = (status.blockedSignals >> (SIGHUP - 1) & 1) != 0;
  const bool isPassing = (status.blockedSignals & kReservedSignals) == kReservedSignals;
  if (blocks && !isPassing) return "it cannot be traced, and blocks SIGHUP";
  const ThreadPlace place = ReadThreadPlace(tid);
  // It would take the request for a signal of the program's, and go on.
  if (place.systemCall == SYS_rt_sigtimedwait)
    return "it cannot be traced, and waits for signals itself";
  if (place.isKnown && !HasAlternateStacks() && !HasRoom(place.stackPointer))
    return "it cannot be traced, and its stack has no room for a handler";
  return nullptr;
}

/// Whether it is to be asked: not stopped, and not held by a tracer either, which would stop it at
/// the signal.
bool IsOpen(const ThreadEntry& thread) {
  const StopState stop = thread.stop.load();
  return stop == StopState::Listed || stop == StopState::Refused ||
         (stop == StopState::Interrupted && !IsTracerAlive());
}

void Ask(ThreadEntry& thread) {
  thread.framesMissing = WhyNotAsked(thread);
  if (thread.framesMissing != nullptr) return;
  thread.request.store(RequestState::Asked);
  if (RawSystemCall(SYS_tgkill, ownPid, thread.tid, SIGHUP) == 0) return;
  thread.request.store(RequestState::None);
  thread.framesMissing = "it could not be asked";
}

/// Takes the request back, unless the thread has begun to answer.
void TakeBack(ThreadEntry& thread, const char* reason) {
  RequestState state = RequestState::Asked;
  if (thread.request.compare_exchange_strong(state, RequestState::TakenBack))
    thread.framesMissing = reason;
}

bool IsPending(const ThreadEntry& thread) {
  const RequestState state = thread.request.load();
  return state == RequestState::Asked || state == RequestState::Claimed;
}

int CountPending() {
  int pending = 0;
  for (const ThreadEntry& thread : g_threadTable) pending += IsPending(thread) ? 1 : 0;
  return pending;
}

/// See StackHandler. Each thread once: the second time would cut its guesses short.
void HurryThoseThatAnswer() {
  for (ThreadEntry& thread : g_threadTable)
    if (thread.request.load() == RequestState::Claimed && !std::exchange(thread.isHurried, true))
      RawSystemCall(SYS_tgkill, ownPid, thread.tid, SIGHUP);
}

/// Those that have not answered leave the processor to the capture, as far as any process may ask
/// for: among hundreds that compute it would wait for its turn each time. Where a sandbox sends
/// SIGSYS for the call, no more than this is given up.
void StepAside() {
  RunGuarded(g_faultGuard, [] {
    for (const ThreadEntry& thread : g_threadTable)
      if (IsPending(thread)) RawSystemCall(SYS_setpriority, PRIO_PROCESS, thread.tid, 19);
  });
}

/// Threads that have ended never answer, and have not lost anything.
void DropEnded() {
  for (ThreadEntry& thread : g_threadTable) {
    if (thread.request.load() != RequestState::Asked) continue;
    const ThreadStatus status = ReadThreadStatus(thread.tid);
    if ((TaskDirectory() >= 0 && !status.exists) || status.ended)
      TakeBack(thread, "the thread has ended");
  }
}

/// Waits until all have answered, or nobody does any more.
void AwaitAnswers(Patience patience) {
  std::int64_t hurryAfter = kHurryAfter;
  int pending = CountPending();
  for (int round = 1; pending != 0 && !patience.IsOver(); ++round) {
    SleepAnInterval();
    if (round % kStatusEvery == 0) DropEnded();
    if (round == kStepAsideAfter) StepAside();
    const int before = std::exchange(pending, CountPending());
    if (pending != before) {
      patience.NoteSign();
      hurryAfter = kHurryAfter;
    } else if (patience.SinceSign() > hurryAfter) {
      HurryThoseThatAnswer();
      hurryAfter += kHurryAfter;
    }
  }
}

}  // namespace

void RequestStacks(pid_t self) {
  bool isAsked = false;
  for (ThreadEntry& thread : g_threadTable) {
    if (thread.tid == self || !IsOpen(thread)) continue;
    if (!isAsked) ReinstallStackHandler();
    isAsked = true;
    Ask(thread);
  }
  if (!isAsked) return;
  AwaitAnswers(Patience(kPatience, kBudget));
  StepAside();
  for (ThreadEntry& thread : g_threadTable) TakeBack(thread, "it did not answer in time");
  AwaitAnswers(Patience(kGrace, kGraceOfAll));
}

}  // namespace tarvo::crashhandler
