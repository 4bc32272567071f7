#pragma once

#include "tarvo/result.h"
#include "toolkit/triage/model/triage_options.h"
#include "toolkit/triage/model/triage_result.h"

namespace tarvo::toolkit {

/// Reads crash logs, groups them and tells what is known of each group; with a database of all that
/// was ever added to it. An error of the database; logs that cannot be read are skipped.
Result<TriageResult> RunTriage(const TriageOptions& options);

}  // namespace tarvo::toolkit
