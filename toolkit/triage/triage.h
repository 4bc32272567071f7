#pragma once

#include "tarvo/result.h"
#include "toolkit/triage/model/added_logs.h"
#include "toolkit/triage/model/triage_options.h"
#include "toolkit/triage/model/triage_result.h"

namespace tarvo::toolkit {

/// Reads crash logs, groups them and tells what is known of each group; with a database of all that
/// was ever added to it. An error of the database; logs that cannot be read are skipped.
Result<TriageResult> RunTriage(const TriageOptions& options);

/// Adds crash logs to the database, and tells of these alone, where the above reads all that is
/// known. Errors as above.
Result<AddedLogs> AddLogs(const TriageOptions& options);

}  // namespace tarvo::toolkit
