#include "crash_guard/signal_entry.h"

#include <errno.h>
#include <poll.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include "crash_guard/after_report.h"
#include "crash_guard/deadline.h"
#include "crash_guard/default_action.h"
#include "crash_guard/fault_facts.h"
#include "crash_guard/guard_state.h"
#include "crash_guard/report_file.h"
#include "crash_guard/stuck_threads.h"

namespace tarvo {
namespace {

std::atomic<bool> g_isHandedOver{false};

/// Takes back a signal that was raised for this thread while it was blocked.
void DropPending(int signal) {
  sigset_t only;
  sigemptyset(&only);
  sigaddset(&only, signal);
  const timespec now{};
  while (sigtimedwait(&only, nullptr, &now) < 0 && errno == EINTR) {
  }
}

/// Has the action that was there before handle the signal, with the mask that it asked for. False
/// when it declined.
bool HandledEarlier(int signal, siginfo_t* info, void* context) {
  const SignalAction& earlier = g_guard.earlier[IndexOf(kCrashSignals, signal)];
  // A fault cannot be ignored, and neither can abort; what somebody sends can.
  if (!IsFunction(earlier))
    return earlier.sa_handler == SIG_IGN && signal != SIGABRT && info->si_code <= 0;
  const unsigned defaults = DefaultsReplaced();
  sigset_t mask;
  pthread_sigmask(SIG_BLOCK, &earlier.sa_mask, &mask);
  CallAction(earlier, signal, info, context);
  pthread_sigmask(SIG_SETMASK, &mask, nullptr);
  SignalAction now;
  sigaction(signal, nullptr, &now);
  // Where this library does not stand in front of the C library, SIG_DFL is there as it was set.
  const bool declined =
      DefaultsReplaced() != defaults || !IsFunction(now) || (earlier.sa_flags & SA_RESETHAND) != 0;
  if (!declined) return true;
  const SignalAction guarding = GuardingAction();
  sigaction(signal, &guarding, nullptr);
  DropPending(signal);
  return false;
}

/// Whether the signal is one of the guard's for a capture that does not end, and is done with.
bool IsOwnSignal(const siginfo_t& info, void* context) {
  if (IsDeadline(info)) {
    OnDeadline();
  } else if (IsRefusedOpen(info)) {
    AnswerOpen(context);
  } else {
    return false;
  }
  return true;
}

/// The crash that is captured: all that the guard has to say of it, before the capture begins.
void BeginCrash(pid_t self, int signal, const siginfo_t& info, const void* context) {
  StartDeadline(self, g_guard.deadline);
  OpenReportFile();
  PublishFaultFacts(self, signal, info, *static_cast<const ucontext_t*>(context));
  g_isHandedOver.store(true);
}

/// A crash beside the one that is captured.
void JoinCrash(pid_t self, int signal) {
  // The capture must find the report's file, and takes the thread that comes first.
  while (!g_isHandedOver.load()) poll(nullptr, 0, 1);
  // The capture's SIGHUP uses the thread's own stack. When that has no room for a signal frame, the
  // signal is gone and SIGSEGV comes instead (linux-6.1 kernel/signal.c, signal_setup_done), or the
  // handler itself runs out of it; here is room, and the capture still waits for the answer.
  if (signal == SIGSEGV) syscall(SYS_tgkill, getpid(), self, SIGHUP);
}

}  // namespace

void GuardSignal(int signal, siginfo_t* info, void* context) {
  const int savedError = errno;
  const auto self = static_cast<pid_t>(syscall(SYS_gettid));
  if (IsOwnSignal(*info, context) ||
      (!g_crashOwner.IsTaken() && HandledEarlier(signal, info, context))) {
    errno = savedError;
    return;
  }
  if (!g_guard.active.load()) {
    // Called by a handler that outlived the guard. The fault repeats, or the caller goes on.
    ::signal(signal, SIG_DFL);
    return;
  }
  if (g_crashOwner.Take(self)) {
    BeginCrash(self, signal, *info, context);
  } else if (g_crashOwner.IsTaken() && !g_crashOwner.IsHeldBy(self)) {
    JoinCrash(self, signal);
  }
  CallAction(g_guard.capture, signal, info, context);
}

void GuardHangup(int signal, siginfo_t* info, void* context) {
  if (g_crashOwner.IsTaken()) {
    CallAction(g_guard.captureHangup, signal, info, context);
  } else {
    EndBySignal(signal);
  }
}

}  // namespace tarvo
