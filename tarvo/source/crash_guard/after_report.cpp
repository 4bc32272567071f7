#include "source/crash_guard/after_report.h"

#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tarvo {

void EndBySignal(const CrashInfo* crash) {
  // Nobody who waits in a handler of the same signal is left to run one.
  signal(crash->signal, SIG_DFL);
  sigset_t own;
  sigemptyset(&own);
  sigaddset(&own, crash->signal);
  // Sent while it is blocked, so that it is there when this thread is next asked for signals.
  syscall(SYS_tgkill, getpid(), syscall(SYS_gettid), crash->signal);
  pthread_sigmask(SIG_UNBLOCK, &own, nullptr);
}

}  // namespace tarvo
