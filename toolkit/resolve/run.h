#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "toolkit/report/report_resolver.h"
#include "toolkit/resolve/listing/report_list.h"
#include "toolkit/resolve/outcome/results_file.h"
#include "toolkit/resolve/summary/summary.h"
#include "toolkit/store/archive_tree.h"

namespace tarvo::toolkit {

/// The exit status of a run that was interrupted, as shells have it for SIGINT.
inline constexpr int kInterruptedStatus = 130;

struct RunOptions {
  std::size_t threads = 1;
  bool isQuiet = false;
  ResultsFile* results = nullptr;  ///< takes a line for each report; null: none
  /// Whether an outcome takes the place of one of the same report with more frames resolved.
  bool replacesBetter = false;
  /// Whether a report that cannot be resolved for what is in it gets a document that says so, for
  /// later runs.
  bool notesBad = true;
  /// Told of each report that is done: its place, its damage, and its frames. By the thread that
  /// resolved it, one at a time.
  std::function<void(std::size_t report, const Result<report::ReportDamage>& damage,
                     const Tally& tally)>
      onDone{};
  /// Asked ten times a second: once it says so no further report is begun, and those that are being
  /// resolved are done to their end. Empty: the run ends by signals, see below.
  std::function<bool()> isEnding{};
};

/// Resolves `reports` and adds what came of it to `summary`; each outcome says which archives of
/// `archives` were there. Progress is shown meanwhile. The first SIGINT or SIGTERM ends it after
/// the reports that are nearly done, within a second: the program, by kInterruptedStatus, where
/// some are not. The second one ends the program at once. With `isEnding` signals are left alone.
void ResolveAll(Framework& framework, report::ReportResolver& resolver,
                const std::vector<Report>& reports, ArchiveTree& archives,
                const RunOptions& options, Summary& summary);

}  // namespace tarvo::toolkit
