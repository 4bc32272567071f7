#pragma once

#include <vector>

#include "toolkit/report/report_resolver.h"
#include "toolkit/resolve/archive_tree.h"
#include "toolkit/resolve/report_list.h"
#include "toolkit/resolve/results_file.h"
#include "toolkit/resolve/summary.h"

namespace tarvo::toolkit {

struct RunOptions {
  std::size_t threads = 1;
  bool isQuiet = false;
  ResultsFile* results = nullptr;  ///< takes a line for each report; null: none
};

/// Resolves `reports` and adds what came of it to `summary`; each outcome says which archives of
/// `archives` were there. Progress is shown meanwhile. The first SIGINT or SIGTERM ends it after
/// the reports that are being resolved, the second one ends the program.
void ResolveAll(Framework& framework, report::ReportResolver& resolver,
                const std::vector<Report>& reports, ArchiveTree& archives,
                const RunOptions& options, Summary& summary);

}  // namespace tarvo::toolkit
