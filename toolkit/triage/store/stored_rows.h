#pragma once

#include <string>
#include <vector>

#include "toolkit/triage/store/sqlite.h"
#include "toolkit/triage/store/stored_crashes.h"

/// The tables' rows, read.
namespace tarvo::toolkit {

/// Sorted by id.
[[nodiscard]] std::vector<StoredGroup> ReadGroups(Sqlite& database);

/// Sorted by id, without frames and stack.
[[nodiscard]] std::vector<StoredVariant> ReadVariants(Sqlite& database);

[[nodiscard]] CrashStack ReadStack(Sqlite& database, const std::string& variant);

/// Sorted by hash.
[[nodiscard]] std::vector<StoredReport> ReadReports(Sqlite& database);

}  // namespace tarvo::toolkit
