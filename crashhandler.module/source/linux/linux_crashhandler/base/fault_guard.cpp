#include "linux/linux_crashhandler/base/fault_guard.h"

#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "crash_context/raw_system_call.h"

namespace tarvo::crashhandler {

FaultGuard g_faultGuard;

namespace {

/// A signal that the capture does not block and that means nothing else to it.
constexpr int kSignal = SIGVTALRM;

/// The kernel's id of the timer; its address marks the timer's signals.
int g_timer = -1;
volatile bool g_wasOverdue = false;

void OnTimer(int, siginfo_t* info, void*) {
  if (info->si_code != SI_TIMER || info->si_value.sival_ptr != &g_timer) return;
  g_wasOverdue = true;
  LeaveGuardedStep(g_faultGuard);
}

}  // namespace

void LeaveGuardedStep(FaultGuard& guard) {
  if (GuardedStep* step = guard.innermost.load()) siglongjmp(step->end, 1);
}

void PrepareStepTimer(pid_t self) {
  struct sigaction action = {};
  action.sa_sigaction = OnTimer;
  action.sa_flags = SA_SIGINFO;
  sigaction(kSignal, &action, nullptr);
  sigset_t own;
  sigemptyset(&own);
  sigaddset(&own, kSignal);
  pthread_sigmask(SIG_UNBLOCK, &own, nullptr);
  // The C library's timer_create allocates (glibc 2.36 sysdeps/unix/sysv/linux/timer_create.c).
  sigevent event{};
  event.sigev_notify = SIGEV_THREAD_ID;
  event.sigev_signo = kSignal;
  event.sigev_value.sival_ptr = &g_timer;
  event._sigev_un._tid = self;
  if (RawSystemCall(SYS_timer_create, CLOCK_MONOTONIC, &event, &g_timer) < 0) g_timer = -1;
}

bool WasOverdue() { return g_wasOverdue; }

void SetStepTimer(long microseconds) {
  if (microseconds != 0) g_wasOverdue = false;
  if (g_timer < 0) return;
  itimerspec when{};
  when.it_value.tv_sec = microseconds / 1'000'000;
  when.it_value.tv_nsec = microseconds % 1'000'000 * 1000;
  // And again: on a busy machine the first one may come before the step has begun to be guarded.
  when.it_interval = when.it_value;
  RawSystemCall(SYS_timer_settime, g_timer, 0, &when, nullptr);
}

}  // namespace tarvo::crashhandler
