#pragma once

#include <cstddef>

#include "toolkit/triage/page/html.h"
#include "toolkit/triage/page/page_index.h"

namespace tarvo::toolkit {

/// Columns of the table of groups.
inline constexpr std::size_t kGroupColumns = 9;

/// The head of the table of groups.
[[nodiscard]] Html GroupHead();

/// The start of a group's body in the table: what sorting and filtering look at, and the row.
[[nodiscard]] Html GroupRow(const PageGroup& group, std::size_t rank, const PageIndex& index);

}  // namespace tarvo::toolkit
