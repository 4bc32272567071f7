#include "linux/linux_crashhandler/register_page.h"

#include <errno.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "linux/linux_crashhandler/capture.h"
#include "linux/linux_crashhandler/crash_child.h"
#include "linux/linux_crashhandler/registers.h"
#include "linux/linux_crashhandler/timed_lock.h"

namespace tarvo::crashhandler {
namespace {

/// Whether `child` is there and running. Reaps it when it has ended.
bool IsRunning(pid_t child) {
  if (child <= 0) return false;
  const pid_t ended = waitpid(child, nullptr, WNOHANG | __WALL);
  return ended == 0 || (ended < 0 && errno == EINTR);
}

/// Waits for the child to have filled the page; false when it never will.
bool AwaitRegisters(pid_t child) {
  while (!LockWithin(sharedRegisterPage->registersReady, kLivenessCheckInterval))
    if (!IsRunning(child)) return false;
  return true;
}

/// Waits for the end of this child only: the program may have others, which may run for long.
void AwaitEnd(pid_t child) {
  while (waitpid(child, nullptr, __WALL) < 0 && errno == EINTR) {
  }
}

}  // namespace

RegisterPage* sharedRegisterPage = nullptr;

void MapRegisterPage() {
  void* page = mmap(nullptr, sizeof(RegisterPage), PROT_READ | PROT_WRITE,
                    MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) {
    Diagnose(kCaptureSource.Here(), "mmap failed: @", ErrorText(errno));
    return;
  }
  sharedRegisterPage = static_cast<RegisterPage*>(page);
  pthread_mutexattr_t shared;
  pthread_mutexattr_init(&shared);
  pthread_mutexattr_setpshared(&shared, PTHREAD_PROCESS_SHARED);
  pthread_mutex_init(&sharedRegisterPage->registersReady, &shared);
  pthread_mutex_init(&sharedRegisterPage->registersConsumed, &shared);
}

void ReadRegisters() {
  if (sharedRegisterPage == nullptr) return;
  // Where the Yama module restricts tracing to ancestors, a process may name one that it lets
  // trace it, with all descendants (linux-6.1 security/yama/yama_lsm.c, ptracer_exception_found).
  // Elsewhere the call fails with EINVAL.
  prctl(PR_SET_PTRACER, getpid(), 0, 0, 0);
  pthread_mutex_lock(&sharedRegisterPage->registersReady);
  // Not fork: it runs atfork handlers and waits for the allocator's and the streams' locks
  // (glibc 2.36 posix/fork.c).
  const pid_t child = _Fork();
  if (child == 0) RunCrashChild(ownPid);
  if (child < 0) Diagnose(kCaptureSource.Here(), "fork failed: @", ErrorText(errno));
  bool filling = child > 0;
  for (std::size_t i = 0; i < g_crashInfo.threads.size; ++i) {
    filling = filling && AwaitRegisters(child);
    DecodeRegisters(g_crashInfo.threads.items[i], *sharedRegisterPage);
    pthread_mutex_unlock(&sharedRegisterPage->registersConsumed);
  }
  if (filling) AwaitEnd(child);
  munmap(sharedRegisterPage, sizeof(RegisterPage));
  sharedRegisterPage = nullptr;
}

}  // namespace tarvo::crashhandler
