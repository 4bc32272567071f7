#include "crash_guard/crash_guard.h"

#include <signal.h>
#include <unistd.h>

#include "crash_context/signal_frame.h"
#include "crash_guard/after_report.h"
#include "crash_guard/default_action.h"
#include "crash_guard/guard_state.h"
#include "crash_guard/report_file.h"
#include "crash_guard/signal_entry.h"
#include "crash_guard/terminate.h"
#include "crash_guard/thread_start.h"
#include "tarvo/crashhandler.h"

namespace tarvo {
namespace {

constexpr SourceFile kCrashGuard{"tarvo/source/crash_guard/crash_guard"};

SignalAction ActionOf(int signal) {
  SignalAction action{};
  sigaction(signal, nullptr, &action);
  return action;
}

bool IsSame(const SignalAction& left, const SignalAction& right) {
  return left.sa_sigaction == right.sa_sigaction;
}

void TakeTheEnd(Framework& framework) {
  const auto crashHandler = Bind<CrashHandler>(framework);
  if (!crashHandler || !(*crashHandler)->SetSecondaryCallback(EndCrash))
    framework.Output().Diagnostic(
        kCrashGuard.Here(),
        "g_crashGuardReraise has no effect, and reports are not named: no "
        "module takes a callback for the end of a crash.");
}

void GuardHangups() {
  g_guard.captureHangup = ActionOf(SIGHUP);
  SignalAction action = g_guard.captureHangup;
  action.sa_sigaction = GuardHangup;
  sigaction(SIGHUP, &action, nullptr);
}

}  // namespace

void CrashGuard::NoteEarlierActions() {
  for (std::size_t i = 0; i < kCrashSignals.size(); ++i)
    g_guard.earlier[i] = ActionOf(kCrashSignals[i].number);
  g_guard.earlierHangup = ActionOf(SIGHUP);
}

void CrashGuard::Start(const CrashGuardOptions& options, Framework& framework) {
  const SignalAction installed = ActionOf(SIGSEGV);
  if (!options.enabled || IsSame(installed, g_guard.earlier[IndexOf(kCrashSignals, SIGSEGV)]))
    return;
  g_guard.capture = installed;
  g_guard.deadline = options.deadline;
  PrepareSignalFrames();
  g_guard.active.store(true);
  if (auto guarded = GuardThreadStarts(); !guarded)
    framework.Output().Diagnostic(kCrashGuard.Here(), guarded.GetError().Text().View());
  RecordUncaughtExceptions();
  g_guard.reraise = options.reraise;
  if (options.reraise || !options.report.IsEmpty()) TakeTheEnd(framework);
  const SignalAction action = GuardingAction();
  for (const NamedSignal& signal : kCrashSignals) sigaction(signal.number, &action, nullptr);
  if (options.hangup && g_guard.earlierHangup.sa_handler == SIG_DFL) GuardHangups();
  started_ = true;
}

void CrashGuard::Stop() {
  if (!started_) return;
  started_ = false;
  while (g_crashOwner.IsTaken()) pause();
  const SignalAction action = GuardingAction();
  // Before the actions go: now SIG_DFL means what it says.
  g_guard.active.store(false);
  // The capture would empty the file at the report's descriptor, which is the program's now.
  const bool keepsCapture = !ForgetReportFile();
  for (const auto& [signal, name] : kCrashSignals) {
    const bool isCaptured = keepsCapture && signal != SIGABRT;
    const SignalAction& before =
        isCaptured ? g_guard.capture : g_guard.earlier[IndexOf(kCrashSignals, signal)];
    if (IsSame(ActionOf(signal), action)) sigaction(signal, &before, nullptr);
  }
  if (ActionOf(SIGHUP).sa_sigaction == GuardHangup)
    sigaction(SIGHUP, &g_guard.captureHangup, nullptr);
  StopRecordingUncaughtExceptions();
  StopGuardingThreadStarts();
}

}  // namespace tarvo
