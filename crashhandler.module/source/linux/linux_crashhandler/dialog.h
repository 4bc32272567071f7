#pragma once

#include "tarvo/string.h"

namespace tarvo::crashhandler {

/// Shows a message to the user where the platform has a way; on Linux it is written to the
/// diagnostic output. Before a crash.
void DisplayCrashHandlerDialog(const String& title, const String& message);

}  // namespace tarvo::crashhandler
