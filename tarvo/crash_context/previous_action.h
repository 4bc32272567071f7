#pragma once

#include <signal.h>

namespace tarvo {

using SignalAction = struct sigaction;

/// Whether the action is a function: neither SIG_DFL nor SIG_IGN. Any context.
bool IsFunction(const SignalAction& action);

/// Calls the action's function as the kernel would, with three arguments or one. Only where
/// IsFunction. Crashed process, signalled thread.
void CallAction(const SignalAction& action, int signal, siginfo_t* info, void* context);

}  // namespace tarvo
