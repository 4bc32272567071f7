#include "linux/linux_crashhandler/stack_request.h"

#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <span>

#include "crash_context/proc_files.h"
#include "linux/linux_crashhandler/capture.h"
#include "linux/linux_crashhandler/capture_memory.h"
#include "linux/linux_crashhandler/thread_list.h"
#include "linux/linux_crashhandler/timed_lock.h"

namespace tarvo::crashhandler {

pthread_mutex_t threadSlotFree = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t threadSlotReady = PTHREAD_MUTEX_INITIALIZER;
ThreadRecord* currentThreadRecord = nullptr;
std::atomic<pid_t> requestedThread{0};

namespace {

constexpr std::size_t kNameSize = 16;

/// Signals that no program blocks: the C library keeps them for itself and takes them out of every
/// mask it is given (glibc 2.36 nptl/pthread_sigmask.c). Blocked together with SIGHUP they show a
/// thread inside pthread_create, posix_spawn or its own end, where all signals wait for a moment.
constexpr std::uint64_t kReservedSignals = std::uint64_t{1} << (32 - 1) | std::uint64_t{1}
                                                                              << (33 - 1);

/// How many intervals a thread gets to leave such a place: one second.
constexpr int kPatience = 50;

/// Whether a thread will run a handler for SIGHUP when it next returns to user code.
enum class Prospect { Never, AfterAMoment, AtOnce };

Prospect ProspectOf(pid_t tid) {
  const ThreadStatus status = ReadThreadStatus(tid);
  if (!status.exists || status.ended) return Prospect::Never;
  if ((status.blockedSignals >> (SIGHUP - 1) & 1) == 0) return Prospect::AtOnce;
  const bool passing = (status.blockedSignals & kReservedSignals) == kReservedSignals;
  return passing ? Prospect::AfterAMoment : Prospect::Never;
}

ThreadRecord* AppendThread(pid_t tid) {
  ThreadRecord* record = Append(g_crashInfo.threads);
  if (record == nullptr) return nullptr;
  record->tid = tid;
  record->name = static_cast<char*>(CaptureAllocate(kNameSize));
  if (record->name != nullptr)
    ReadThreadName(tid, std::span<char, kNameSize>(record->name, kNameSize));
  return record;
}

/// Waits for `tid` to release threadSlotFree, which this thread holds again afterwards. A thread
/// that has ended or blocked the signal after all never will, so its request is taken back.
void AwaitAnswer(pid_t tid) {
  int patience = kPatience;
  while (!LockWithin(threadSlotFree, kLivenessCheckInterval)) {
    const Prospect prospect = ProspectOf(tid);
    if (prospect == Prospect::AtOnce) continue;
    pid_t unclaimed = tid;
    const bool hopeless = prospect == Prospect::Never || --patience == 0;
    if (hopeless && requestedThread.compare_exchange_strong(unclaimed, 0)) return;
  }
}

}  // namespace

void RecordStacks(const CaptureArray<pid_t>& threads) {
  pthread_mutex_lock(&threadSlotFree);
  for (const pid_t tid : threads) {
    currentThreadRecord = AppendThread(tid);
    if (ProspectOf(tid) == Prospect::Never) continue;
    requestedThread.store(tid);
    pthread_mutex_unlock(&threadSlotReady);
    if (syscall(SYS_tgkill, ownPid, tid, SIGHUP) == 0) {
      AwaitAnswer(tid);
    } else {
      requestedThread.store(0);
    }
  }
  pthread_mutex_unlock(&threadSlotFree);
}

}  // namespace tarvo::crashhandler
