#pragma once

#include "tarvo/crashhandler.h"

namespace tarvo {

/// A crash callback: ends the process by the signal of the crash, with its default effect. Returns
/// only when the kernel refuses. Crashed process.
void EndBySignal(const CrashInfo* crash);

}  // namespace tarvo
