#pragma once

#include <signal.h>

namespace tarvo::crashhandler {

/// The action of the fatal signals: captures the crash, has it reported and ends the process with
/// status 1. The first thread to come here captures. Another one that crashes meanwhile waits for
/// the end. The capturing thread itself comes here again when a step of the capture faults: a
/// guarded one is given up, any other ends the process at once with what is written by then.
/// Crashed process.
void CrashHandler(int signal, siginfo_t* info, void* context);

}  // namespace tarvo::crashhandler
