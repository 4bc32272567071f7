#pragma once

#include <sys/types.h>

namespace tarvo::crashhandler {

/// Stops each thread that was chosen for it (ThreadEntry::isForChild) in turn, copies its
/// registers into the shared page and hands the page over; ends the child with status 0. What fails
/// is diagnosed, and the page is then empty. `crashedProcess` is the parent; when that ends, so
/// does the child. Crash child.
[[noreturn]] void RunCrashChild(pid_t crashedProcess);

}  // namespace tarvo::crashhandler
