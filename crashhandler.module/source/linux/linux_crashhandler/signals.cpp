#include "linux/linux_crashhandler/signals.h"

#include <string.h>
#include <unistd.h>

#include <cstddef>
#include <iterator>

#include "connection.h"
#include "linux/linux_crashhandler/capture.h"
#include "linux/linux_crashhandler/capture_memory.h"
#include "linux/linux_crashhandler/crash_handler.h"
#include "linux/linux_crashhandler/frame_texts.h"
#include "linux/linux_crashhandler/modules.h"
#include "linux/linux_crashhandler/proc_file.h"
#include "linux/linux_crashhandler/stack_handler.h"

namespace tarvo::crashhandler {
namespace {

struct NamedSignal {
  int number;
  const char* name;
};

/// The fatal signals, in the order in which they are installed and restored.
constexpr NamedSignal kFatalSignals[] = {{SIGSEGV, "SIGSEGV"}, {SIGILL, "SIGILL"},
                                         {SIGBUS, "SIGBUS"},   {SIGSYS, "SIGSYS"},
                                         {SIGTRAP, "SIGTRAP"}, {SIGFPE, "SIGFPE"}};
constexpr std::size_t kFatalCount = std::size(kFatalSignals);

/// The actions that were there before, SIGHUP's last.
struct sigaction g_previousActions[kFatalCount + 1];

using Handler = void (*)(int, siginfo_t*, void*);

struct sigaction ActionFor(Handler handler) {
  struct sigaction action = {};
  action.sa_sigaction = handler;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_SIGINFO | SA_RESTART;
  return action;
}

/// What would otherwise be loaded, bound or allocated for the first time in a crash.
void WarmCrashPath() {
  PrepareCaptureMemory();
  WarmUnwinder();
  IsMappedExecutable(0);
  PrepareFrameTexts();
}

}  // namespace

int InstallCrashHandler() {
  g_crashServices = &g_tarvo.framework->Crash();
  WarmCrashPath();
  struct sigaction action = ActionFor(CrashHandler);
  for (std::size_t i = 0; i < kFatalCount; ++i)
    sigaction(kFatalSignals[i].number, &action, &g_previousActions[i]);
  action.sa_sigaction = StackHandler;
  sigaction(SIGHUP, &action, &g_previousActions[kFatalCount]);
  ownPid = getpid();
  return 1;
}

void RestoreSignalHandlers() {
  if (IsCapturing()) Park();
  for (std::size_t i = 0; i < kFatalCount; ++i)
    sigaction(kFatalSignals[i].number, &g_previousActions[i], nullptr);
  sigaction(SIGHUP, &g_previousActions[kFatalCount], nullptr);
}

void SetCrashReportCallback(CrashCallback callback) { crashReportCallback.store(callback); }
void SetAfterReportCallback(CrashCallback callback) { afterReportCallback.store(callback); }

const char* SignalName(int signal) {
  for (const NamedSignal& fatal : kFatalSignals)
    if (fatal.number == signal) return fatal.name;
  return "unknown signal";
}

void ReinstallStackHandler() {
  const struct sigaction action = ActionFor(StackHandler);
  sigaction(SIGHUP, &action, nullptr);
}

void MaskSignalsForCapture() {
  sigset_t mask;
  sigfillset(&mask);
  for (const NamedSignal& fatal : kFatalSignals) sigdelset(&mask, fatal.number);
  sigdelset(&mask, SIGHUP);
  pthread_sigmask(SIG_SETMASK, &mask, nullptr);
}

void ResetFatalSignals() {
  struct sigaction action = {};
  action.sa_handler = SIG_DFL;
  for (const NamedSignal& fatal : kFatalSignals) sigaction(fatal.number, &action, nullptr);
}

void ForwardHangup(int signal, siginfo_t* info, void* context) {
  const struct sigaction& previous = g_previousActions[kFatalCount];
  if ((previous.sa_flags & SA_SIGINFO) != 0) {
    previous.sa_sigaction(signal, info, context);
  } else if (previous.sa_handler != SIG_DFL && previous.sa_handler != SIG_IGN) {
    previous.sa_handler(signal);
  }
}

}  // namespace tarvo::crashhandler
