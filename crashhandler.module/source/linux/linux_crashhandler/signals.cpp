#include "linux/linux_crashhandler/signals.h"

#include <dlfcn.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "connection.h"
#include "crash_context/fatal_signals.h"
#include "crash_context/previous_action.h"
#include "crash_context/raw_system_call.h"
#include "crash_context/signal_frame.h"
#include "linux/linux_crashhandler/asking/stack_handler.h"
#include "linux/linux_crashhandler/base/capture_memory.h"
#include "linux/linux_crashhandler/capture.h"
#include "linux/linux_crashhandler/crash_handler.h"
#include "linux/linux_crashhandler/facts/modules.h"
#include "linux/linux_crashhandler/facts/thread_table.h"
#include "linux/linux_crashhandler/recording/crash_facts.h"
#include "linux/linux_crashhandler/recording/frame_texts.h"
#include "linux/linux_crashhandler/stopping/thread_stop.h"
#include "linux/linux_crashhandler/walking/stack_walk.h"

namespace tarvo::crashhandler {
namespace {

/// The actions that were there before, SIGHUP's last.
SignalAction g_previousActions[kFatalSignals.size() + 1];

using Handler = void (*)(int, siginfo_t*, void*);

SignalAction ActionFor(Handler handler) {
  SignalAction action = {};
  action.sa_sigaction = handler;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_SIGINFO | SA_RESTART;
  return action;
}

/// What would otherwise be loaded, bound or allocated for the first time in a crash.
void WarmCrashPath() {
  PrepareCaptureMemory();
  WarmUnwinder();
  PrepareFrameTexts();
  PrepareThreadList();
  PrepareCrashFacts();
  PrepareTracer();
}

bool g_hasAlternateStacks = false;

/// Whether both addresses lie in one module. Takes no lock (glibc 2.36 elf/dl-find_object.c).
bool AreOfOneModule(const void* first, const void* second) {
  dl_find_object one{};
  dl_find_object other{};
  return _dl_find_object(const_cast<void*>(first), &one) == 0 &&
         _dl_find_object(const_cast<void*>(second), &other) == 0 &&
         one.dlfo_link_map == other.dlfo_link_map;
}

/// The crash guard gives each thread an alternate stack, and its actions are the host's.
bool IsGuards(const SignalAction& action) {
  return (action.sa_flags & SA_ONSTACK) != 0 && g_crashServices != nullptr &&
         AreOfOneModule(reinterpret_cast<const void*>(action.sa_sigaction),
                        reinterpret_cast<const void*>(g_crashServices->diagnostic));
}

}  // namespace

int InstallCrashHandler() {
  g_crashServices = &g_tarvo.framework->Crash();
  WarmCrashPath();
  SignalAction action = ActionFor(CrashHandler);
  for (std::size_t i = 0; i < kFatalSignals.size(); ++i)
    sigaction(kFatalSignals[i].number, &action, &g_previousActions[i]);
  action.sa_sigaction = StackHandler;
  sigaction(SIGHUP, &action, &g_previousActions[kFatalSignals.size()]);
  PrepareSignalFrames();
  ownPid = getpid();
  return 1;
}

void RestoreSignalHandlers() {
  if (g_captureOwner.IsTaken()) Park();
  for (std::size_t i = 0; i < kFatalSignals.size(); ++i)
    sigaction(kFatalSignals[i].number, &g_previousActions[i], nullptr);
  sigaction(SIGHUP, &g_previousActions[kFatalSignals.size()], nullptr);
}

void SetCrashReportCallback(CrashCallback callback) { crashReportCallback.store(callback); }
void SetAfterReportCallback(CrashCallback callback) { afterReportCallback.store(callback); }

void ReinstallStackHandler() {
  SignalAction action = ActionFor(StackHandler);
  action.sa_flags |= SA_NODEFER;  // it may be sent again into a walk that hangs
  sigaction(SIGHUP, &action, nullptr);
}

void ReinstallFaultHandler() {
  SignalAction action = ActionFor(CrashHandler);
  action.sa_flags |= SA_ONSTACK;
  SignalAction before = {};
  sigaction(SIGSEGV, &action, &before);
  sigaction(SIGBUS, &action, nullptr);
  g_hasAlternateStacks = IsGuards(before);
}

bool HasAlternateStacks() { return g_hasAlternateStacks; }

void MaskSignalsForCapture() {
  sigset_t mask;
  sigfillset(&mask);
  for (const NamedSignal& fatal : kFatalSignals) sigdelset(&mask, fatal.number);
  sigdelset(&mask, SIGHUP);
  pthread_sigmask(SIG_SETMASK, &mask, nullptr);
}

void UnblockFaults() {
  const std::uint64_t faults = std::uint64_t{1} << (SIGSEGV - 1) | std::uint64_t{1} << (SIGBUS - 1);
  RawSystemCall(SYS_rt_sigprocmask, SIG_UNBLOCK, &faults, nullptr, sizeof(faults));
}

void ResetFatalSignals() {
  SignalAction action = {};
  action.sa_handler = SIG_DFL;
  for (const NamedSignal& fatal : kFatalSignals) sigaction(fatal.number, &action, nullptr);
}

void ForwardHangup(int signal, siginfo_t* info, void* context) {
  const SignalAction& previous = g_previousActions[kFatalSignals.size()];
  if (IsFunction(previous)) CallAction(previous, signal, info, context);
}

}  // namespace tarvo::crashhandler
