#include "linux/linux_crashhandler/stopping/thread_stop.h"

#include <errno.h>
#include <linux/futex.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "crash_context/raw_system_call.h"
#include "linux/linux_crashhandler/base/patience.h"
#include "linux/linux_crashhandler/capture.h"
#include "linux/linux_crashhandler/facts/thread_table.h"
#include "linux/linux_crashhandler/stopping/tracer.h"

namespace tarvo::crashhandler {
namespace {

constexpr std::size_t kStackSize = std::size_t{64} << 10;
constexpr std::size_t kGuardSize = std::size_t{4} << 10;
/// How long the tracer may do nothing that is seen, in nanoseconds: it keeps a budget of its own.
constexpr std::int64_t kPatience = 1'000'000'000;
constexpr long kLivenessInterval = 5'000'000;

char* g_stack = nullptr;

void Wake(std::atomic<std::uint32_t>& word) {
  RawSystemCall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, 1);
}

void Command(TracerCommand command) {
  const std::uint32_t number = g_tracer.command.load() / kTracerCommands + 1;
  g_tracer.command.store(number * kTracerCommands + static_cast<std::uint32_t>(command));
  Wake(g_tracer.command);
}

/// Whether the tracer has only not had the processor.
bool IsTracerOnItsWay() {
  return g_tracer.taskDirectory >= 0 && IsRunnable("../../", g_tracer.tid.load());
}

/// Waits until a command is carried out, when `before` were; false when it was not in time, or the
/// tracer has ended.
bool AwaitDone(std::uint32_t before) {
  Patience patience(kPatience, kStopLimit + kPatience);
  for (std::uint32_t stops = g_tracer.stops.load(); g_tracer.done.load() == before;) {
    const bool isSlow = patience.SinceSign() > kPatience / 2;
    if (g_tracer.stops.load() != stops || (isSlow && IsTracerOnItsWay())) patience.NoteSign();
    stops = g_tracer.stops.load();
    if (!IsTracerAlive() || patience.IsOver()) return g_tracer.done.load() != before;
    const timespec interval{0, kLivenessInterval};
    RawSystemCall(SYS_futex, &g_tracer.done, FUTEX_WAIT_PRIVATE, before, &interval);
  }
  return true;
}

/// Ends a tracer that hangs in the kernel, so that it touches nothing any more.
void KillTracer() {
  const pid_t tracer = g_tracer.tid.load();
  if (tracer <= 0) return;
  RawSystemCall(SYS_kill, tracer, SIGKILL);
  for (const std::int64_t end = MonotonicTime() + kPatience / 2;
       IsTracerAlive() && MonotonicTime() < end;) {
    const timespec pause{0, 1'000'000};
    RawSystemCall(SYS_nanosleep, &pause, nullptr);
  }
}

/// The tracer must not run a handler of the program: it starts with all signals blocked.
bool StartTracer() {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  // CLONE_UNTRACED: a debugger that follows forks leaves it alone. No signal at its end: the
  // program may count its children. CLONE_CHILD_CLEARTID: the kernel says when it has ended.
  constexpr int kFlags = CLONE_VM | CLONE_FS | CLONE_FILES | CLONE_UNTRACED | CLONE_PARENT_SETTID |
                         CLONE_CHILD_CLEARTID;
  const int tracer = clone(RunTracer, g_stack + kGuardSize + kStackSize, kFlags, nullptr,
                           &g_tracer.tid, nullptr, &g_tracer.tid);
  const int error = errno;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (tracer < 0) {
    g_tracer.tid.store(0);
    Diagnose(kCaptureSource.Here(), "The tracer could not be started: @", ErrorText(error));
  }
  return tracer > 0;
}

/// A process that is not dumpable cannot be traced: one that has changed its ids, for example.
class Dumpable {
 public:
  Dumpable() : before_(prctl(PR_GET_DUMPABLE)) {
    if (before_ != 1) prctl(PR_SET_DUMPABLE, 1);
  }
  ~Dumpable() {
    if (before_ == 0) prctl(PR_SET_DUMPABLE, 0);
  }
  Dumpable(const Dumpable&) = delete;
  Dumpable& operator=(const Dumpable&) = delete;

 private:
  const int before_;
};

}  // namespace

void PrepareTracer() {
  if (g_stack != nullptr) return;
  void* memory = mmap(nullptr, kStackSize + 2 * kGuardSize, PROT_NONE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
  if (memory == MAP_FAILED) return;
  if (mprotect(static_cast<char*>(memory) + kGuardSize, kStackSize, PROT_READ | PROT_WRITE) != 0) {
    munmap(memory, kStackSize + 2 * kGuardSize);
    return;
  }
  g_stack = static_cast<char*>(memory);
}

bool IsTracerAlive() { return g_tracer.tid.load() > 0; }

void StopThreads(pid_t self, void (*meanwhile)()) {
  g_tracer.process = getpid();
  g_tracer.crashThread = self;
  g_tracer.taskDirectory = TaskDirectory();
  g_tracer.command.store(static_cast<std::uint32_t>(TracerCommand::Prepare));
  g_tracer.tid.store(0);
  if (g_stack == nullptr) return;
  const Dumpable dumpable;
  if (!StartTracer()) return;
  // Where the Yama module restricts tracing to ancestors, a process may name one that it lets
  // trace it (linux-6.1 security/yama/yama_lsm.c, ptracer_exception_found). Elsewhere the call
  // fails with EINVAL.
  prctl(PR_SET_PTRACER, g_tracer.tid.load(), 0, 0, 0);
  // A process of one thread has nobody to be held. One that vfork has made must not leave a tracer
  // behind that runs on in its parent's memory.
  const std::uint32_t before = g_tracer.done.load();
  Command(TracerCommand::Stop);
  meanwhile();
  if (!AwaitDone(before) || g_threadTable.count.load() == 1) KillTracer();
}

bool YieldToThreads() {
  if (!IsTracerAlive()) return false;
  const std::uint32_t before = g_tracer.done.load();
  Command(TracerCommand::Yield);
  if (AwaitDone(before)) return true;
  KillTracer();
  return false;
}

}  // namespace tarvo::crashhandler
