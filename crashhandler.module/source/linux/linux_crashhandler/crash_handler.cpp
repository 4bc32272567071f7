#include "linux/linux_crashhandler/crash_handler.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include "crash_context/fatal_signals.h"
#include "linux/linux_crashhandler/bad_call.h"
#include "linux/linux_crashhandler/capture.h"
#include "linux/linux_crashhandler/fault_guard.h"
#include "linux/linux_crashhandler/frame_texts.h"
#include "linux/linux_crashhandler/modules.h"
#include "linux/linux_crashhandler/register_page.h"
#include "linux/linux_crashhandler/signals.h"
#include "linux/linux_crashhandler/stack_request.h"
#include "linux/linux_crashhandler/thread_list.h"

namespace tarvo::crashhandler {
namespace {

/// The signals for which the kernel gives an address: 4, 5, 7, 8 and 11.
constexpr std::uint32_t kAddressedSignals = 0x9B0;

/// Returns in the one thread that is to capture.
void OwnTheCrash(pid_t self) {
  if (g_captureOwner.Take(self)) return;
  // The capture itself has crashed.
  if (g_captureOwner.IsHeldBy(self)) EndProcess();
  Park();
}

void PrepareThread() {
  MaskSignalsForCapture();
  // The capture opens, writes and waits; a cancelled thread must not be unwound there.
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  ReinstallStackHandler();
  ownPid = getpid();
}

void StoreFacts(const siginfo_t& info) {
  const int signal = info.si_signo;
  const bool addressed = signal < 12 && (kAddressedSignals >> signal & 1) != 0;
  g_crashInfo.signal = signal;
  g_crashInfo.signalName = NameOf(kFatalSignals, signal);
  g_crashInfo.faultAddress = addressed ? reinterpret_cast<std::uint64_t>(info.si_addr) : 0;
  g_crashInfo.crashThread = pthread_self();
}

void Report() {
  if (const CrashCallback report = crashReportCallback.load()) report(&g_crashInfo);
  if (const CrashCallback afterReport = afterReportCallback.load()) afterReport(&g_crashInfo);
}

}  // namespace

void CrashHandler(int, siginfo_t* info, void* context) {
  const pid_t self = OwnThreadId();
  LeaveGuardedStep(self);
  OwnTheCrash(self);
  PrepareThread();
  MapRegisterPage();
  // A damaged list of modules gives up what comes behind the damage.
  RunGuarded(self, ListModules);
  StoreFacts(*info);
  const CaptureArray<pid_t>* threads = ListThreads();
  // Without a list there is no capture; the fault repeats and ends the process.
  if (threads == nullptr) return;
  MendBadCall(self, info, static_cast<ucontext_t*>(context));
  RecordStacks(*threads);
  ReadRegisters();
  NameFrames();
  Report();
  EndProcess();
}

}  // namespace tarvo::crashhandler
