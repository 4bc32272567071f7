#pragma once

#include "tarvo/crashhandler.h"

namespace tarvo {

/// Behind the report: names its file on standard error, if it is one of the guard's. Crashed
/// process.
void NameReport(const CrashInfo* crash);

/// Behind all callbacks: ends the process by the signal of the crash, if the guard is to. Crashed
/// process.
void EndReported(const CrashInfo* crash);

/// Ends the process by `signal`, with its default effect. Returns only when the kernel refuses.
/// Crashed process.
void EndBySignal(int signal);

}  // namespace tarvo
