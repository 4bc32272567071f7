#include "linux/linux_crashhandler/asking/stack_handler.h"

#include <errno.h>
#include <ucontext.h>

#include "linux/linux_crashhandler/capture.h"
#include "linux/linux_crashhandler/facts/thread_table.h"
#include "linux/linux_crashhandler/signals.h"

namespace tarvo::crashhandler {

void AnswerRequest(pid_t self, const void* context) {
  ThreadEntry* thread = g_threadTable.Find(self);
  RequestState state = RequestState::Asked;
  if (thread == nullptr || !thread->request.compare_exchange_strong(state, RequestState::Claimed))
    return;
  const auto* interrupted = static_cast<const ucontext_t*>(context);
  const bool isWhole = RunGuarded(thread->guard, [&] {
    WalkStack(WalkRegisters::From(interrupted->uc_mcontext), thread->stack);
  });
  thread->stack.isCutShort = !isWhole;
  thread->request.store(RequestState::Answered);
}

void StackHandler(int signal, siginfo_t* info, void* context) {
  const int savedError = errno;
  const pid_t self = OwnThreadId();
  if (!g_captureOwner.IsTaken()) {
    ForwardHangup(signal, info, context);
    errno = savedError;
    return;
  }
  AnswerRequest(self, context);
  // Nothing of the program runs on while its crash is captured. The capturing thread is not asked.
  if (!g_captureOwner.IsHeldBy(self)) Park();
  errno = savedError;
}

}  // namespace tarvo::crashhandler
