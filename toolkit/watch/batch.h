#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tarvo/framework.h"
#include "toolkit/report/report_resolver.h"
#include "toolkit/store/archive_tree.h"
#include "toolkit/triage/triage_library.h"

namespace tarvo::toolkit {

/// A report that a batch deals with.
struct BatchReport {
  std::string path{};
  bool isRepeated = false;  ///< resolved also where nothing has changed since the last try
};

/// What a batch is done with. All but the texts are borrowed.
struct BatchTools {
  Framework& framework;
  report::ReportResolver& resolver;
  ArchiveTree& archives;
  const TriageLibrary* triage = nullptr;  ///< null: nothing is grouped
  std::string database{};
  std::size_t threads = 1;
  /// Takes lines (batch_record.h), a whole one each time, and empty ones as signs of life. One
  /// thread at a time.
  std::function<void(std::string_view line)> tell{};
};

/// Resolves reports, adds what comes of them to the database, and then tells of each. Reports that
/// are up to date are added only. Nothing is told of those that are not there any more, or that
/// were not come to before the end was asked for (IsEndAsked). An error, and nothing told, when the
/// database cannot be used: all of it can be done again then.
[[nodiscard]] Result<void> RunBatch(const std::vector<BatchReport>& reports,
                                    const BatchTools& tools);

}  // namespace tarvo::toolkit
