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
#include "crash_path/report_callbacks.h"

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

bool IsIgnoring(const SignalAction& action) { return action.sa_handler == SIG_IGN; }

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
  SetCrashEnd(NameReport, EndReported);
  const SignalAction action = GuardingAction();
  for (const NamedSignal& signal : kCrashSignals) sigaction(signal.number, &action, nullptr);
  if (options.hangup && g_guard.earlierHangup.sa_handler == SIG_DFL) GuardHangups();
  started_ = true;
}

void CrashGuard::KeepIgnored(bool all) {
  if (IsIgnoring(g_guard.earlierHangup)) sigaction(SIGHUP, &g_guard.earlierHangup, nullptr);
  for (std::size_t i = 0; all && i < kCrashSignals.size(); ++i)
    if (IsIgnoring(g_guard.earlier[i]))
      sigaction(kCrashSignals[i].number, &g_guard.earlier[i], nullptr);
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
  SetCrashEnd(nullptr, nullptr);
  StopRecordingUncaughtExceptions();
  StopGuardingThreadStarts();
}

}  // namespace tarvo
