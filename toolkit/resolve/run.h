#pragma once

#include <vector>

#include "toolkit/report/report_resolver.h"
#include "toolkit/resolve/report_list.h"
#include "toolkit/resolve/summary.h"

namespace tarvo::toolkit {

/// Resolves `reports` in `threads` threads and adds what came of it to `summary`. Progress is shown
/// meanwhile. The first SIGINT or SIGTERM ends it after the reports that are being resolved, the
/// second one ends the program.
void ResolveAll(Framework& framework, report::ReportResolver& resolver,
                const std::vector<Report>& reports, std::size_t threads, bool isQuiet,
                Summary& summary);

}  // namespace tarvo::toolkit
