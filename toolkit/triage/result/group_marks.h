#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "toolkit/triage/model/triage_result.h"
#include "toolkit/triage/store/stored_crashes.h"

namespace tarvo::toolkit {

/// Whether one build's name comes before another's as people count: "R9.1" before "R10.0". Numbers
/// by value, all else byte by byte.
[[nodiscard]] bool ComesBefore(std::string_view a, std::string_view b);

/// The builds of all reports, oldest first: by their first report whose time is known, those
/// without behind, those that came on one day by their names.
[[nodiscard]] std::vector<std::string> BuildsByAge(const std::vector<StoredReport>& reports);

/// Sets isNew, isBack and isRising of each group; `builds` are all, oldest first.
///
/// - New: of two builds or more, it occurs in the newest only.
/// - Back: it occurs in the newest, and in an older one, but in none of those between.
/// - Rising: of all reports of the last seven days at least three are of it, and more than twice as
///   many as of the seven days before, from which there are reports. The last day is that of any
///   report.
void SetMarks(std::vector<TriageGroup>& groups, const std::vector<std::string>& builds);

}  // namespace tarvo::toolkit
