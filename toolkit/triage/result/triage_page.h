#pragma once

#include <chrono>
#include <string>

#include "toolkit/triage/model/triage_result.h"

namespace tarvo::toolkit {

/// The result as a page (page/page.h), which says that it was made at `made`. `document` is the
/// name of the JSON file that holds everything; empty: there is none.
[[nodiscard]] std::string TriagePage(const TriageResult& result, const std::string& document,
                                     std::chrono::sys_seconds made);

}  // namespace tarvo::toolkit
