#include "crash_context/previous_action.h"

namespace tarvo {

bool IsFunction(const SignalAction& action) {
  return (action.sa_flags & SA_SIGINFO) != 0 ||
         (action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN);
}

void CallAction(const SignalAction& action, int signal, siginfo_t* info, void* context) {
  if ((action.sa_flags & SA_SIGINFO) != 0) {
    action.sa_sigaction(signal, info, context);
  } else {
    action.sa_handler(signal);
  }
}

}  // namespace tarvo
