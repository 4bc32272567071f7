#include "crash_guard/deadline.h"

#include <poll.h>
#include <stdio.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

#include "crash_context/text_buffer.h"
#include "crash_guard/guard_state.h"
#include "crash_guard/signal_entry.h"
#include "tarvo/host/crash_guard.h"

namespace tarvo {
namespace {

constexpr int kSignal = SIGTRAP;
/// How long standard error may take to become writable, and flushing may last.
constexpr int kLineMilliseconds = 200;
constexpr std::int64_t kFlushSeconds = 1;
static_assert(kFlushSeconds < kCrashGuardGrace);

/// The kernel's ids of the two timers; the address of the first marks its signals.
int g_timers[2] = {-1, -1};

/// Whether the first timer has come before, and the flushing it led to hangs.
std::atomic<bool> g_isFlushing{false};

void Set(int timer, std::int64_t seconds) {
  itimerspec when{};
  when.it_value.tv_sec = static_cast<time_t>(seconds);
  syscall(SYS_timer_settime, timer, 0, &when, nullptr);
}

/// The C library's timer_create allocates (glibc 2.36 sysdeps/unix/sysv/linux/timer_create.c).
void Make(int& timer, sigevent& event, std::int64_t seconds) {
  event.sigev_value.sival_ptr = &timer;
  if (syscall(SYS_timer_create, CLOCK_MONOTONIC, &event, &timer) == 0) Set(timer, seconds);
}

void Print(const TextBuffer<200>& line) {
  pollfd error{STDERR_FILENO, POLLOUT, 0};
  if (poll(&error, 1, kLineMilliseconds) != 1 || (error.revents & POLLOUT) == 0) return;
  // There is nobody left to tell when this fails.
  if (write(STDERR_FILENO, line.Text(), line.Size()) < 0) return;
}

void PrintLine() {
  TextBuffer<200> line;
  line.Append("tarvo: The capture of the crash did not end within ");
  line.AppendDecimal(g_guard.deadline);
  line.Append(" seconds; the process ends now.\n");
  Print(line);
}

}  // namespace

void StartDeadline(pid_t self, std::int64_t seconds) {
  if (seconds == 0) return;
  SignalAction action{};
  action.sa_sigaction = GuardSignal;
  // Without SA_NODEFER the flushing could not be ended.
  action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
  sigaction(kSignal, &action, nullptr);
  sigset_t own;
  sigemptyset(&own);
  sigaddset(&own, kSignal);
  pthread_sigmask(SIG_UNBLOCK, &own, nullptr);
  sigevent event{};
  event.sigev_notify = SIGEV_THREAD_ID;
  event.sigev_signo = kSignal;
  event._sigev_un._tid = self;
  Make(g_timers[0], event, seconds);
  event = {};
  event.sigev_notify = SIGEV_SIGNAL;
  event.sigev_signo = SIGKILL;
  Make(g_timers[1], event, seconds + kCrashGuardGrace);
}

bool IsDeadline(const siginfo_t& info) {
  return info.si_signo == kSignal && info.si_code == SI_TIMER &&
         info.si_value.sival_ptr == &g_timers[0];
}

void OnDeadline() {
  if (!g_isFlushing.exchange(true)) {
    PrintLine();
    Set(g_timers[0], kFlushSeconds);
    fflush(nullptr);
  }
  for (;;) _exit(1);
}

}  // namespace tarvo
