#include "linux/linux_crashhandler/crash_handler.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "crash_context/fatal_signals.h"
#include "crash_context/signal_frame.h"
#include "linux/linux_crashhandler/asking/register_page.h"
#include "linux/linux_crashhandler/asking/stack_handler.h"
#include "linux/linux_crashhandler/asking/stack_request.h"
#include "linux/linux_crashhandler/base/fault_guard.h"
#include "linux/linux_crashhandler/capture.h"
#include "linux/linux_crashhandler/facts/code_ranges.h"
#include "linux/linux_crashhandler/facts/modules.h"
#include "linux/linux_crashhandler/facts/thread_names.h"
#include "linux/linux_crashhandler/facts/thread_table.h"
#include "linux/linux_crashhandler/recording/crash_facts.h"
#include "linux/linux_crashhandler/recording/frame_texts.h"
#include "linux/linux_crashhandler/recording/thread_records.h"
#include "linux/linux_crashhandler/signals.h"
#include "linux/linux_crashhandler/stopping/thread_stop.h"
#include "linux/linux_crashhandler/walking/stack_capture.h"

namespace tarvo::crashhandler {
namespace {

/// The signals for which the kernel gives an address: 4, 5, 7, 8 and 11.
constexpr std::uint32_t kAddressedSignals = 0x9B0;
/// For listing the modules, in microseconds: the loader's lock may never come free.
constexpr long kModules = 1'000'000;

/// A crash beside the one that is captured. The thread may have been asked for its stack when it
/// crashed, and its handler for that may not have had room on its stack: here is room.
[[noreturn]] void JoinCrash(pid_t self, int signal, const siginfo_t* info, void* context) {
  const SignalFrame frame = FindSignalFrame(signal, info, context);
  if (frame.context != nullptr) AnswerWithRoom(self, *frame.context);
  ThreadEntry* thread = g_threadTable.Find(self);
  if (thread != nullptr) LeaveGuardedStep(thread->guard);
  if (frame.context != nullptr) AnswerRequest(self, frame.context);
  Park();
}

/// Returns in the one thread that is to capture.
void OwnTheCrash(pid_t self, int signal, const siginfo_t* info, void* context) {
  if (g_captureOwner.Take(self)) return;
  if (!g_captureOwner.IsHeldBy(self)) JoinCrash(self, signal, info, context);
  // The capture itself has crashed: the step is given up, or the capture.
  LeaveGuardedStep(g_faultGuard);
  EndProcess();
}

void PrepareThread(pid_t self) {
  if (g_crashServices != nullptr) g_crashServices->captureBegins();
  g_crashInfo = {};
  ownPid = getpid();
  MaskSignalsForCapture();
  ReinstallFaultHandler();
  // The capture opens, writes and waits; a cancelled thread must not be unwound there.
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  PrepareStepTimer(self);
}

/// Without the kernel's facts the context tells the address of a page fault (trap 14).
std::uint64_t FaultAddress(int signal, const SignalFrame& frame) {
  if (frame.info != nullptr) return reinterpret_cast<std::uint64_t>(frame.info->si_addr);
  if (frame.context == nullptr || signal != SIGSEGV) return 0;
  const greg_t* registers = frame.context->uc_mcontext.gregs;
  return registers[REG_TRAPNO] == 14 ? static_cast<std::uint64_t>(registers[REG_CR2]) : 0;
}

void StoreFacts(int signal, const SignalFrame& frame) {
  const bool isAddressed = signal < 12 && (kAddressedSignals >> signal & 1) != 0;
  g_crashInfo.signal = signal;
  g_crashInfo.signalName = NameOf(kFatalSignals, signal);
  if (isAddressed) g_crashInfo.faultAddress = FaultAddress(signal, frame);
  g_crashInfo.crashThread = pthread_self();
}

/// A stage that faults is given up; the report is made of what there is.
template <typename Stage>
void Guarded(const Stage& stage) {
  RunGuarded(g_faultGuard, stage);
}

/// Each of the program's callbacks in its turn, also behind one that faults.
void RunChainedCallbacks(const CrashServices& services) {
  static volatile bool isEnd = false;
  while (!isEnd) {
    // The one before may have read it.
    if (g_writtenReport.descriptor >= 0) lseek(g_writtenReport.descriptor, 0, SEEK_SET);
    Guarded([&] { isEnd = !services.runNextCallback(&g_writtenReport); });
  }
}

void Report() {
  g_writtenReport = {.crash = &g_crashInfo};
  if (const CrashCallback report = crashReportCallback.load()) report(&g_crashInfo);
  if (g_crashServices != nullptr) g_crashServices->reportWritten(&g_crashInfo);
  if (const CrashCallback afterReport = afterReportCallback.load()) afterReport(&g_crashInfo);
  if (g_crashServices == nullptr) return;
  RunChainedCallbacks(*g_crashServices);
  g_crashServices->captureEnds(&g_crashInfo);
}

}  // namespace

void CrashHandler(int signal, siginfo_t* info, void* context) {
  const pid_t self = OwnThreadId();
  OwnTheCrash(self, signal, info, context);
  PrepareThread(self);
  const SignalFrame frame = FindSignalFrame(signal, info, context);
  StoreFacts(signal, frame);
  if (!RunLimited(kModules, ListModules)) Guarded(ListModulesWithoutLock);
  Guarded(ListCodeRanges);
  Guarded([&] { ListThreads(self); });
  WalkCrashedThread(self, frame);
  Guarded([&] { StopThreads(self, NameThreads); });
  Guarded(NameThreads);
  WalkStoppedThreads(self, frame);
  Guarded([&] { RequestStacks(self); });
  Guarded(ReadRegisters);
  Guarded(CompleteStacks);
  Guarded(RecordThreads);
  Guarded([&] { AddCrashFacts(self, frame); });
  Guarded(NameFrames);
  Report();
  EndProcess();
}

}  // namespace tarvo::crashhandler
