#include "linux/linux_crashhandler/stopping/tracer.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <string_view>

#include "crash_context/proc_files.h"
#include "crash_context/raw_system_call.h"
#include "linux/linux_crashhandler/base/patience.h"
#include "linux/linux_crashhandler/facts/thread_table.h"

namespace tarvo::crashhandler {

TracerState g_tracer;

namespace {

/// New threads are looked for so often.
constexpr int kMaximumPasses = 20;
constexpr long kFirstPause = 20'000;
constexpr long kLongestPause = 1'000'000;

[[noreturn]] void End() {
  for (;;) RawSystemCall(SYS_exit, 0);
}

void Sleep(long nanoseconds) {
  const timespec time{0, nanoseconds};
  RawSystemCall(SYS_nanosleep, &time, nullptr);
}

template <typename Address = long, typename Data = long>
long Ptrace(long request, pid_t tid, Address address = 0, Data data = 0) {
  return RawSystemCall(SYS_ptrace, request, tid, address, data);
}

/// Whether `tid` is a thread of the crashed process: a listing of another pid namespace would name
/// threads of others, and ids are used again. A sandbox may refuse the question.
bool IsThread(pid_t tid) { return RawSystemCall(SYS_tgkill, g_tracer.process, tid, 0) != -ESRCH; }

/// Dies with the crashing thread, and of old age.
void Prepare() {
  std::uint64_t all = ~std::uint64_t{0};
  RawSystemCall(SYS_rt_sigprocmask, SIG_SETMASK, &all, nullptr, sizeof(all));
  RawSystemCall(SYS_prctl, PR_SET_PDEATHSIG, SIGKILL);
  if (RawSystemCall(SYS_getppid) != g_tracer.process) End();
  sigevent event{};
  event.sigev_notify = SIGEV_SIGNAL;
  event.sigev_signo = SIGKILL;
  int timer = 0;
  itimerspec life{};
  life.it_value.tv_sec = kTracerLife;
  if (RawSystemCall(SYS_timer_create, CLOCK_MONOTONIC, &event, &timer) == 0)
    RawSystemCall(SYS_timer_settime, timer, 0, &life, nullptr);
}

/// Waits for a command after `last`, which it replaces.
TracerCommand AwaitCommand(std::uint32_t& last) {
  while (g_tracer.command.load() == last)
    RawSystemCall(SYS_futex, &g_tracer.command, FUTEX_WAIT_PRIVATE, last, nullptr);
  last = g_tracer.command.load();
  return static_cast<TracerCommand>(last % kTracerCommands);
}

void ReportDone() {
  g_tracer.done.fetch_add(1);
  RawSystemCall(SYS_futex, &g_tracer.done, FUTEX_WAKE_PRIVATE, 1);
}

void Seize(ThreadEntry& thread) {
  // No options, and never PTRACE_O_EXITKILL: the end of this process would be that of the other.
  const long seized = IsThread(thread.tid) ? Ptrace(PTRACE_SEIZE, thread.tid) : -ESRCH;
  thread.error = static_cast<int>(-seized);
  if (seized == 0 && IsThread(thread.tid)) {
    Ptrace(PTRACE_INTERRUPT, thread.tid);
    thread.stop.store(StopState::Interrupted);
  } else {
    thread.stop.store(IsThread(thread.tid) ? StopState::Refused : StopState::Ended);
  }
}

/// Looks whether the thread stands still, without waiting for it: reading its registers says so.
/// Not by wait4, which a sandbox may refuse, and for which a program may have handlers.
void Look(ThreadEntry& thread) {
  if (Ptrace(PTRACE_GETREGS, thread.tid, 0, &thread.registers.general) == 0) {
    Ptrace(PTRACE_GETFPREGS, thread.tid, 0, &thread.registers.floating);
    thread.hasRegisters = true;
    thread.stop.store(StopState::Stopped);
    g_tracer.stops.fetch_add(1);
  } else if (!IsThread(thread.tid)) {
    thread.stop.store(StopState::Ended);
  }
}

/// Whether waiting longer is of use: on a machine that is busy enough a thread is not even woken up
/// in kStopBudget.
bool IsAnyOnItsWay() {
  for (const ThreadEntry& thread : g_threadTable) {
    if (thread.stop.load() != StopState::Interrupted || !IsRunnable("", thread.tid)) continue;
    g_tracer.stops.fetch_add(1);
    return true;
  }
  return false;
}

/// Looks at the threads that were told to stop until all do, or none has for too long, or `end`.
void AwaitStops(std::int64_t end) {
  long pause = kFirstPause;
  std::int64_t lastStop = MonotonicTime();
  for (std::uint32_t before = g_tracer.stops.load();;) {
    bool isComplete = true;
    for (ThreadEntry& thread : g_threadTable) {
      if (thread.stop.load() != StopState::Interrupted) continue;
      Look(thread);
      isComplete = isComplete && thread.stop.load() != StopState::Interrupted;
    }
    const std::int64_t now = MonotonicTime();
    if (g_tracer.stops.load() != before) lastStop = now;
    before = g_tracer.stops.load();
    if (isComplete || now > end || (now > lastStop + kStopBudget && !IsAnyOnItsWay())) return;
    Sleep(pause);
    if (pause < kLongestPause) pause *= 2;
  }
}

/// Takes new threads into the table; whether there were any.
bool FindThreads() {
  const std::size_t before = g_threadTable.count.load();
  if (g_tracer.taskDirectory < 0) return false;
  RawSystemCall(SYS_lseek, g_tracer.taskDirectory, 0, SEEK_SET);
  std::size_t next = 0;
  ForEachNumber(g_tracer.taskDirectory, [&](pid_t tid) {
    // The listing and the table have the same order, but for threads that have come or gone.
    if (next < before && g_threadTable.entries[next].tid == tid) {
      ++next;
      return true;
    }
    return g_threadTable.Find(tid) != nullptr || g_threadTable.Add(tid) != nullptr;
  });
  return g_threadTable.count.load() != before;
}

/// Stops the crashing thread for as long as it takes to read its registers: it waits for this. No
/// limit of time: it must be let go again, and when it has waited too long it kills this process.
void ReadCrashThread() {
  ThreadEntry* thread = g_threadTable.Find(g_tracer.crashThread);
  if (thread == nullptr) return;
  Seize(*thread);
  while (thread->stop.load() == StopState::Interrupted) {
    Look(*thread);
    if (thread->stop.load() == StopState::Interrupted) Sleep(kFirstPause);
  }
  if (thread->stop.load() == StopState::Stopped)
    Ptrace(PTRACE_DETACH, thread->tid, 0, DeliveredSignal(thread->tid));
}

void StopAll() {
  const std::int64_t end = MonotonicTime() + kStopLimit;
  for (int pass = 0; pass < kMaximumPasses; ++pass) {
    for (ThreadEntry& thread : g_threadTable)
      if (thread.stop.load() == StopState::Listed && thread.tid != g_tracer.crashThread)
        Seize(thread);
    AwaitStops(end);
    // Threads that were still running may have started others.
    if (!FindThreads() || MonotonicTime() > end) break;
  }
  ReadCrashThread();
}

void Yield() {
  for (ThreadEntry& thread : g_threadTable) {
    if (thread.stop.load() != StopState::Stopped || thread.tid == g_tracer.crashThread) continue;
    thread.stop.store(StopState::Interrupted);
    Ptrace(PTRACE_CONT, thread.tid, 0, DeliveredSignal(thread.tid));
  }
  Sleep(kYield);
  for (ThreadEntry& thread : g_threadTable)
    if (thread.stop.load() == StopState::Interrupted) Ptrace(PTRACE_INTERRUPT, thread.tid);
  AwaitStops(MonotonicTime() + kYieldLimit);
}

}  // namespace

bool IsRunnable(const char* folder, pid_t tid) {
  TextBuffer<32> path;
  path.Append(folder);
  path.AppendDecimal(tid);
  path.Append("/stat");
  const long file =
      RawSystemCall(SYS_openat, g_tracer.taskDirectory, path.Text(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  char buffer[64];
  const long size = RawSystemCall(SYS_read, file, buffer, sizeof(buffer));
  RawSystemCall(SYS_close, file);
  const std::string_view text(buffer, static_cast<std::size_t>(size > 0 ? size : 0));
  const std::size_t nameEnd = text.rfind(')');
  return nameEnd != std::string_view::npos && text.substr(nameEnd).starts_with(") R");
}

long DeliveredSignal(pid_t tid) {
  siginfo_t info{};
  if (Ptrace(PTRACE_GETSIGINFO, tid, 0, &info) != 0 || info.si_code >> 8 == PTRACE_EVENT_STOP)
    return 0;
  return info.si_signo;
}

int RunTracer(void*) {
  Prepare();
  for (auto last = static_cast<std::uint32_t>(TracerCommand::Prepare);;) {
    const TracerCommand command = AwaitCommand(last);
    if (command == TracerCommand::Stop) StopAll();
    if (command == TracerCommand::Yield) Yield();
    ReportDone();
  }
}

}  // namespace tarvo::crashhandler
