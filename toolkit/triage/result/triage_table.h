#pragma once

#include <string>

#include "toolkit/triage/model/triage_options.h"
#include "toolkit/triage/model/triage_result.h"

namespace tarvo::toolkit {

/// The groups as a table for a terminal, with a line in front that counts and lines behind for what
/// was skipped. Safe to print.
[[nodiscard]] std::string TriageTable(const TriageResult& result, const TableOptions& options);

}  // namespace tarvo::toolkit
