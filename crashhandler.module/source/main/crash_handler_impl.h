#pragma once

#include "tarvo/crashhandler.h"

namespace tarvo::crashhandler {

/// Makes the module's implementation of the crash-handler interface. It has no state of its own
/// beyond the module's.
Ref<CrashHandler> CreateCrashHandlerImpl();

}  // namespace tarvo::crashhandler
