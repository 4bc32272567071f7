#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "tarvo/data_dictionary.h"
#include "toolkit/report/reading.h"
#include "toolkit/resolve/listing/report_list.h"
#include "toolkit/resolve/summary/lacks.h"
#include "toolkit/resolve/summary/missing_symbols.h"
#include "toolkit/resolve/summary/tally.h"

namespace tarvo::toolkit {

/// A report that was resolved as far as it could be read.
struct DamagedReport {
  Url file;
  report::ReportDamage damage;
};

/// What a run has done.
struct Summary {
  std::size_t read = 0;
  std::size_t resolved = 0;
  std::vector<DamagedReport> damaged;  ///< of these, in part
  std::size_t upToDate = 0;            ///< left alone
  std::vector<Failure> knownBad;       ///< left alone: they failed before, with the same content
  std::size_t kept = 0;       ///< resolved worse than before, so that the older outcome stays
  std::size_t untouched = 0;  ///< not come to, because the run was interrupted
  std::vector<Failure> failures;
  Tally tally;                                 ///< of frames
  Lacks lacks;                                 ///< of all reports, those that were left alone too
  MissingSymbols missing;                      ///< what these come to
  std::string places;                          ///< where symbols were looked for, a line each
  std::map<std::string, std::string> refused;  ///< files of symbols that were not used, and why
};

/// For people: a few lines, with the failures and what would help most.
[[nodiscard]] std::string SummaryText(const Summary& summary);

/// Everything, for programs; see `tarvo resolve --help`.
[[nodiscard]] DataDictionary SummaryDocument(const Summary& summary);

}  // namespace tarvo::toolkit
