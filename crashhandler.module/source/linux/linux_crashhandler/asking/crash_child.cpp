#include "linux/linux_crashhandler/asking/crash_child.h"

#include <errno.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include "crash_context/text_buffer.h"
#include "linux/linux_crashhandler/asking/register_page.h"
#include "linux/linux_crashhandler/capture.h"
#include "linux/linux_crashhandler/facts/thread_table.h"
#include "linux/linux_crashhandler/signals.h"

namespace tarvo::crashhandler {
namespace {

/// Signals that may be taken from a thread in front of its SIGSTOP. There are 64.
constexpr int kMaximumPassedSignals = 64;

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

/// Stops the thread. A signal that was on its way may stop it before SIGSTOP does; detaching then
/// would leave the SIGSTOP behind and stop the whole process for good, so each such signal is
/// passed on until SIGSTOP is there.
void Attach(pid_t tid) {
  ptrace(PTRACE_ATTACH, tid, nullptr, nullptr);
  for (int passed = 0; passed <= kMaximumPassedSignals; ++passed) {
    int status = 0;
    pid_t stopped = 0;
    do {
      stopped = waitpid(-1, &status, __WALL);
    } while (stopped < 0 && errno == EINTR);
    if (stopped != tid) {
      PrintWaitError(status);
      return;
    }
    if (!WIFSTOPPED(status) || WSTOPSIG(status) == SIGSTOP) return;
    ptrace(PTRACE_CONT, tid, nullptr, WSTOPSIG(status));
  }
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
  if (ptrace(PTRACE_DETACH, tid, nullptr, nullptr) != 0)
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
    Attach(thread.tid);
    CopyRegisters(thread.tid);
    pthread_mutex_unlock(&sharedRegisterPage->registersReady);
  }
  _exit(0);
}

}  // namespace tarvo::crashhandler
