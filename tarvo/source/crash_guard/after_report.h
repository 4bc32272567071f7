#pragma once

#include "tarvo/crashhandler.h"

namespace tarvo {

/// The crash callback behind the report: names the report file on standard error, if there is one
/// of the guard's, and ends the process by the signal of the crash, if the guard is to. Crashed
/// process.
void EndCrash(const CrashInfo* crash);

/// Ends the process by `signal`, with its default effect. Returns only when the kernel refuses.
/// Crashed process.
void EndBySignal(int signal);

}  // namespace tarvo
