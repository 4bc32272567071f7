#include "linux/linux_crashhandler/asking/stack_handler.h"

#include <errno.h>
#include <ucontext.h>

#include <cstdint>
#include <new>
#include <utility>

#include "crash_context/readable_memory.h"
#include "linux/linux_crashhandler/capture.h"
#include "linux/linux_crashhandler/facts/thread_table.h"
#include "linux/linux_crashhandler/signals.h"

namespace tarvo::crashhandler {

namespace {

void Answer(ThreadEntry& thread, const ucontext_t& interrupted) {
  UnblockFaults();
  WalkGuarded(WalkRegisters::From(interrupted.uc_mcontext), thread.stack,
              [&](const auto& step) { return RunGuarded(thread.guard, step); });
  thread.request.store(RequestState::Answered);
}

/// Whether the next function that is called may find no room, or the last one has found none.
bool IsAtStackEnd(const ucontext_t& context) {
  const auto sp = static_cast<std::uint64_t>(context.uc_mcontext.gregs[REG_RSP]);
  return !IsReadable(sp) || !IsReadable(sp - kPage);
}

/// Whether the signal has interrupted this handler in its walk; then it does not come back here
/// when the walk can be left.
bool LeaveUnwinder(pid_t self) {
  ThreadEntry* thread = g_threadTable.Find(self);
  if (thread == nullptr || thread->request.load() != RequestState::Claimed) return false;
  thread->stack.isUnwinderHeld = true;
  LeaveGuardedStep(thread->guard);
  return true;
}

}  // namespace

void AnswerRequest(pid_t self, const void* context) {
  ThreadEntry* thread = g_threadTable.Find(self);
  RequestState state = RequestState::Asked;
  if (thread == nullptr || !thread->request.compare_exchange_strong(state, RequestState::Claimed))
    return;
  thread->interrupted = static_cast<const ucontext_t*>(context);
  Answer(*thread, *thread->interrupted);
}

void AnswerWithRoom(pid_t self, const ucontext_t& fault) {
  ThreadEntry* thread = g_threadTable.Find(self);
  if (thread == nullptr || thread->request.load() != RequestState::Claimed || !IsAtStackEnd(fault))
    return;
  const ucontext_t* interrupted = std::exchange(thread->interrupted, nullptr);
  if (interrupted == nullptr) return;
  new (&thread->stack) Stack;
  thread->guard.innermost.store(nullptr);
  Answer(*thread, *interrupted);
}

void StackHandler(int signal, siginfo_t* info, void* context) {
  const int savedError = errno;
  const pid_t self = OwnThreadId();
  if (!g_captureOwner.IsTaken()) {
    ForwardHangup(signal, info, context);
    errno = savedError;
    return;
  }
  if (LeaveUnwinder(self)) return;
  AnswerRequest(self, context);
  // Nothing of the program runs on while its crash is captured. The capturing thread is not asked.
  if (!g_captureOwner.IsHeldBy(self)) Park();
  errno = savedError;
}

}  // namespace tarvo::crashhandler
