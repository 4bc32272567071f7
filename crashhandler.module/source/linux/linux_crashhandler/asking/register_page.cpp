#include "linux/linux_crashhandler/asking/register_page.h"

#include <errno.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "linux/linux_crashhandler/asking/crash_child.h"
#include "linux/linux_crashhandler/base/patience.h"
#include "linux/linux_crashhandler/capture.h"
#include "linux/linux_crashhandler/facts/thread_table.h"
#include "linux/linux_crashhandler/stopping/thread_stop.h"

namespace tarvo::crashhandler {
namespace {

/// How often a wait of the capture looks whether the other side is still there, in nanoseconds.
constexpr long kLivenessCheckInterval = 20'000'000;

/// Takes `mutex` if that is possible within `nanoseconds` (less than a second). The wait is a futex
/// call and nothing else (glibc 2.36 nptl/pthread_mutex_timedlock.c).
bool LockWithin(pthread_mutex_t& mutex, long nanoseconds) {
  timespec until{};
  clock_gettime(CLOCK_MONOTONIC, &until);
  until.tv_nsec += nanoseconds;
  if (until.tv_nsec >= 1'000'000'000) {
    until.tv_nsec -= 1'000'000'000;
    ++until.tv_sec;
  }
  return pthread_mutex_clocklock(&mutex, CLOCK_MONOTONIC, &until) == 0;
}

/// For the child's next answer and for all of them, and for its end, in nanoseconds.
constexpr std::int64_t kPatience = 2'000'000'000;
constexpr std::int64_t kBudget = 4'000'000'000;
constexpr std::int64_t kEnd = 200'000'000;

/// Whether `child` is there and running, for all that is known: a sandbox may refuse the question.
/// Reaps it when it has ended.
bool IsRunning(pid_t child) {
  if (child <= 0) return false;
  const pid_t ended = waitpid(child, nullptr, WNOHANG | __WALL);
  return ended == 0 || (ended < 0 && errno != ECHILD);
}

/// Waits for the child to have filled the page; false when it never will.
bool AwaitRegisters(pid_t child, Patience& patience) {
  while (!LockWithin(sharedRegisterPage->registersReady, kLivenessCheckInterval))
    if (!IsRunning(child) || patience.IsOver()) return false;
  patience.NoteSign();
  return true;
}

/// Waits for the end of this child only: the program may have others, which may run for long.
void AwaitEnd(pid_t child) {
  for (const Patience patience(kEnd, kEnd); IsRunning(child) && !patience.IsOver();) {
    timespec pause{0, kLivenessCheckInterval / 10};
    nanosleep(&pause, nullptr);
  }
}

/// Whether the tracer left the thread's registers to the child; chosen before it starts, so that
/// both go through the same threads.
bool IsForChild(const ThreadEntry& thread) {
  const StopState stop = thread.stop.load();
  const bool isHeld = stop == StopState::Interrupted && IsTracerAlive();
  return !thread.hasRegisters && stop != StopState::Ended && !isHeld && !thread.isKernelWorker;
}

bool Choose() {
  bool isAny = false;
  for (ThreadEntry& thread : g_threadTable) {
    thread.isForChild = IsForChild(thread);
    isAny = isAny || thread.isForChild;
  }
  return isAny;
}

}  // namespace

RegisterPage* sharedRegisterPage = nullptr;

void MapRegisterPage() {
  if (sharedRegisterPage != nullptr) munmap(sharedRegisterPage, sizeof(RegisterPage));
  sharedRegisterPage = nullptr;
  void* page = mmap(nullptr, sizeof(RegisterPage), PROT_READ | PROT_WRITE,
                    MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) {
    Diagnose(kCaptureSource.Here(), "mmap failed: @", ErrorText(errno));
    return;
  }
  sharedRegisterPage = static_cast<RegisterPage*>(page);
  pthread_mutexattr_t shared;
  pthread_mutexattr_init(&shared);
  pthread_mutexattr_setpshared(&shared, PTHREAD_PROCESS_SHARED);
  pthread_mutex_init(&sharedRegisterPage->registersReady, &shared);
  pthread_mutex_init(&sharedRegisterPage->registersConsumed, &shared);
}

void ReadRegisters() {
  if (!Choose()) return;
  MapRegisterPage();
  if (sharedRegisterPage == nullptr) return;
  // As for the tracer, see StopThreads; a child's descendants may trace too.
  prctl(PR_SET_PTRACER, getpid(), 0, 0, 0);
  pthread_mutex_lock(&sharedRegisterPage->registersReady);
  // Not fork: it runs atfork handlers and waits for the allocator's and the streams' locks
  // (glibc 2.36 posix/fork.c).
  const pid_t child = _Fork();
  if (child == 0) RunCrashChild(ownPid);
  if (child < 0) Diagnose(kCaptureSource.Here(), "fork failed: @", ErrorText(errno));
  Patience patience(kPatience, kBudget);
  bool isFilling = child > 0;
  for (ThreadEntry& thread : g_threadTable) {
    if (!thread.isForChild || !isFilling) continue;
    isFilling = AwaitRegisters(child, patience);
    if (!isFilling) break;
    thread.registers = sharedRegisterPage->registers;
    // A thread that could not be read leaves the page empty; none runs without a stack.
    thread.hasRegisters = thread.registers.general.rsp != 0;
    pthread_mutex_unlock(&sharedRegisterPage->registersConsumed);
  }
  if (child > 0 && !isFilling) kill(child, SIGKILL);
  if (child > 0) AwaitEnd(child);
}

}  // namespace tarvo::crashhandler
