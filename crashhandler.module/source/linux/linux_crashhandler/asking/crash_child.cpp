#include "linux/linux_crashhandler/asking/crash_child.h"

#include <errno.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>

#include "crash_context/text_buffer.h"
#include "linux/linux_crashhandler/asking/register_page.h"
#include "linux/linux_crashhandler/base/patience.h"
#include "linux/linux_crashhandler/capture.h"
#include "linux/linux_crashhandler/facts/thread_table.h"
#include "linux/linux_crashhandler/signals.h"
#include "linux/linux_crashhandler/stopping/tracer.h"

namespace tarvo::crashhandler {
namespace {

/// How long a thread is looked at where waiting for it is refused, and how often, in nanoseconds.
constexpr std::int64_t kPatience = 500'000'000;
constexpr long kPause = 1'000'000;

void Print(const char* text) {
  // Nothing can be done about a standard output that takes no text.
  if (write(STDOUT_FILENO, text, strlen(text)) < 0) return;
}

void PrintWaitError(int status) {
  Print("error in waitpid: ");
  if ((status & 0x7f) == 0) {
    Print("WIFEXITED\n");
  } else if ((status & 0xff00) != 0) {
    Print("WEXITSTATUS: ");
    TextBuffer<16> number;
    number.AppendDecimal(status);
    Print(number.Text());
  } else {
    Print((status & 0x7f) == 0x7f ? "WTERMSIG\n" : "WIFSIGNALED\n");
  }
}

pid_t Wait(int& status) {
  pid_t stopped = 0;
  do {
    stopped = waitpid(-1, &status, __WALL);
  } while (stopped < 0 && errno == EINTR);
  return stopped;
}

/// Looks whether the thread stands still: its registers can be read then.
void AwaitStop(pid_t tid) {
  user_regs_struct registers{};
  for (const Patience patience(kPatience, kPatience); !patience.IsOver();) {
    if (ptrace(PTRACE_GETREGS, tid, nullptr, &registers) == 0) return;
    const timespec pause{0, kPause};
    nanosleep(&pause, nullptr);
  }
}

/// Stops the thread, by the interrupt or by a signal that was on its way before. Not by
/// PTRACE_ATTACH: its SIGSTOP would stay behind when this process may not wait, or is killed at
/// that, and stop the whole process in mid-report.
void Stop(pid_t tid) {
  const bool isSeized = ptrace(PTRACE_SEIZE, tid, nullptr, nullptr) == 0;
  if (isSeized) ptrace(PTRACE_INTERRUPT, tid, nullptr, nullptr);
  int status = 0;
  if (Wait(status) == tid) return;
  PrintWaitError(status);
  if (isSeized) AwaitStop(tid);
}

void CopyRegisters(pid_t tid) {
  errno = 0;
  if (ptrace(PTRACE_GETREGS, tid, nullptr, &sharedRegisterPage->registers.general) != 0)
    Diagnose(kCaptureSource.Here(), "Ptrace(PTRACE_GETREGS, ...) returned error:@",
             ErrorText(errno));
  errno = 0;
  if (ptrace(PTRACE_GETFPREGS, tid, nullptr, &sharedRegisterPage->registers.floating) != 0)
    Diagnose(kCaptureSource.Here(), "ptrace(PTRACE_GETFPREGS,...) returned error:@",
             ErrorText(errno));
  errno = 0;
  if (ptrace(PTRACE_DETACH, tid, nullptr, DeliveredSignal(tid)) != 0)
    Diagnose(kCaptureSource.Here(), "detach error: @", ErrorText(errno));
}

}  // namespace

void RunCrashChild(pid_t crashedProcess) {
  // A fault in here must end the child, and a child whose parent is gone would wait for ever.
  ResetFatalSignals();
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != crashedProcess) _exit(0);
  for (const ThreadEntry& thread : g_threadTable) {
    if (!thread.isForChild) continue;
    pthread_mutex_lock(&sharedRegisterPage->registersConsumed);
    // What cannot be read stays empty.
    memset(&sharedRegisterPage->registers, 0, sizeof(sharedRegisterPage->registers));
    Stop(thread.tid);
    CopyRegisters(thread.tid);
    pthread_mutex_unlock(&sharedRegisterPage->registersReady);
  }
  _exit(0);
}

}  // namespace tarvo::crashhandler
