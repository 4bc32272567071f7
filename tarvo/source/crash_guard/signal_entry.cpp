#include "crash_guard/signal_entry.h"

#include <errno.h>
#include <poll.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include "crash_context/signal_frame.h"
#include "crash_guard/after_report.h"
#include "crash_guard/deadline.h"
#include "crash_guard/default_action.h"
#include "crash_guard/fault_facts.h"
#include "crash_guard/guard_state.h"
#include "crash_guard/report_file.h"

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
/// when it declined. `facts` are null where the caller has passed none.
bool HandledEarlier(int signal, const siginfo_t* facts, siginfo_t* info, void* context) {
  const SignalAction& earlier = g_guard.earlier[IndexOf(kCrashSignals, signal)];
  // A fault cannot be ignored, and neither can abort; what somebody sends can.
  if (!IsFunction(earlier))
    return earlier.sa_handler == SIG_IGN && signal != SIGABRT && facts != nullptr &&
           facts->si_code <= 0;
  const unsigned defaults = DefaultsReplaced();
  sigset_t mask;
  pthread_sigmask(SIG_BLOCK, &earlier.sa_mask, &mask);
  CallAction(earlier, signal, info, context);
  pthread_sigmask(SIG_SETMASK, &mask, nullptr);
  SignalAction now;
  sigaction(signal, nullptr, &now);
  // Where this library does not stand in front of the C library, SIG_DFL is there as it was set.
  const bool declined = DefaultsReplaced() != defaults || !IsFunction(now) ||
                        (static_cast<unsigned>(earlier.sa_flags) & SA_RESETHAND) != 0;
  if (!declined) return true;
  const SignalAction guarding = GuardingAction();
  sigaction(signal, &guarding, nullptr);
  DropPending(signal);
  return false;
}

/// The crash that is captured: all that the guard has to say of it, before the capture begins.
void BeginCrash(pid_t self, int signal, const SignalFrame& frame) {
  StartDeadline(self, g_guard.deadline);
  OpenReportFile();
  PublishFaultFacts(self, signal, frame);
  g_isHandedOver.store(true);
}

/// A crash beside the one that is captured.
void JoinCrash() {
  // The capture must find the report's file, and takes the thread that comes first.
  while (!g_isHandedOver.load()) poll(nullptr, 0, 1);
}

}  // namespace

void GuardSignal(int signal, siginfo_t* info, void* context) {
  const int savedError = errno;
  const auto self = static_cast<pid_t>(syscall(SYS_gettid));
  // A program's own handler that calls this one may pass nothing but the number.
  const SignalFrame frame = FindSignalFrame(signal, info, context);
  if (frame.info != nullptr) {
    info = const_cast<siginfo_t*>(frame.info);
    context = frame.context;
    if (IsDeadline(*info)) OnDeadline();
  }
  if (!g_crashOwner.IsTaken() && HandledEarlier(signal, frame.info, info, context)) {
    errno = savedError;
    return;
  }
  if (!g_guard.active.load()) {
    // Called by a handler that outlived the guard. The fault repeats, or the caller goes on.
    ::signal(signal, SIG_DFL);
    return;
  }
  if (g_crashOwner.Take(self)) {
    BeginCrash(self, signal, frame);
  } else if (!g_crashOwner.IsHeldBy(self)) {
    JoinCrash();
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
