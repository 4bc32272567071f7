#pragma once

#include <vector>

#include "tarvo/crashhandler.h"
#include "tarvo/string.h"

namespace tarvo::crashhandler {

// What the capture offers to a healthy process. Apart from the crash path, since it may throw and
// allocate.

/// Shows a message to the user where the platform has a way; on Linux it is written to the
/// diagnostic output. Before a crash.
void DisplayCrashHandlerDialog(const String& title, const String& message);

/// Appends the objects that are loaded now; false when memory ran out. Before a crash.
bool EnumerateProcessModules(std::vector<LoadedModule>& modules);

}  // namespace tarvo::crashhandler
