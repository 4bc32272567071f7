#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "toolkit/cluster/report_list_file.h"

namespace tarvo::toolkit {

/// What the results of many tasks come to, beside the list that they worked through.
struct Merge {
  std::size_t resolved = 0;
  std::size_t failed = 0;   ///< reports with an outcome that says why they could not be resolved
  std::size_t changed = 0;  ///< reports whose file was another one when it was resolved
  std::vector<std::size_t> missing;   ///< places in the list of reports without an outcome
  std::vector<std::string> doubled;   ///< reports with a second outcome, and the file that has it
  std::vector<std::string> unlisted;  ///< reports with an outcome that the list does not name

  /// Whether each listed report has exactly one outcome, and nothing else has one.
  [[nodiscard]] bool IsWhole() const {
    return missing.empty() && doubled.empty() && unlisted.empty();
  }
};

/// Takes a line of results, with its end, and the place of its report in the list. Its error ends
/// the merging.
using TakeLine = std::function<Result<void>(std::size_t place, std::string_view line)>;

/// Reads files of results, one after the other, a line at a time, and hands the first outcome of
/// each listed report to `take`, which may be empty. Errors are those of ForEachOutcome; a file
/// that does not exist has nothing, so that its reports are missing.
[[nodiscard]] Result<Merge> MergeResults(const std::vector<ListedReport>& list,
                                         const std::vector<Url>& results, const TakeLine& take);

}  // namespace tarvo::toolkit
