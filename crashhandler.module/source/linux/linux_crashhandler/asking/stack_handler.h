#pragma once

#include <signal.h>
#include <sys/types.h>
#include <ucontext.h>

namespace tarvo::crashhandler {

/// The action of SIGHUP. Asked by the capture, it records the interrupted thread's stack into the
/// thread's entry and waits for the end of the process; otherwise it hands the signal to the
/// function that was installed before it, if any, and changes nothing. A second one, while it
/// records, says that the unwinder keeps it waiting: it goes on without. Signalled thread.
void StackHandler(int signal, siginfo_t* info, void* context);

/// Answers a request for the stack of the calling thread `self`, which was interrupted where
/// `context` says, if there is one that it has not answered. Signalled thread.
void AnswerRequest(pid_t self, const void* context);

/// Answers once more, from the start, where `fault` says that the handler that was to answer has
/// come to the end of the stack that it was called on. The calling one has another stack. Signalled
/// thread, handler of a fault.
void AnswerWithRoom(pid_t self, const ucontext_t& fault);

}  // namespace tarvo::crashhandler
