#pragma once

#include <set>
#include <string>

#include "toolkit/triage/model/triage_result.h"
#include "toolkit/triage/store/stored_crashes.h"

namespace tarvo::toolkit {

/// Sums crashes up. `added` are the ids of the groups that the database did not have before.
[[nodiscard]] TriageResult MakeTriageResult(StoredCrashes crashes,
                                            const std::set<std::string>& added);

}  // namespace tarvo::toolkit
