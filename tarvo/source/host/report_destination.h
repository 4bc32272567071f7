#pragma once

#include "host/host_framework.h"
#include "host/start_warnings.h"

namespace tarvo {

/// Gives the capture the place of its report: the guard's file, if the guard has one, else what
/// g_crashReportUrl says, else, where that cannot be written to, a file of the same name in the
/// fallback folder. Warns of a place that cannot be written to. The entries are configured; before
/// the modules are initialised. An illegal-argument error for a pattern that is none.
Result<void> UseReportDestination(HostFramework& framework, StartWarnings& warnings);

}  // namespace tarvo
