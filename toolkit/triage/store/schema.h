#pragma once

#include "toolkit/triage/store/sqlite.h"

namespace tarvo::toolkit {

/// The version of the tables; docs/database.md describes them.
inline constexpr std::int64_t kSchemaVersion = 1;

/// Makes the tables of a database that is empty. An illegal-state error when it is one of another
/// program or of a later version. Within a transaction.
[[nodiscard]] Result<void> PrepareSchema(Sqlite& database, const std::string& path);

}  // namespace tarvo::toolkit
