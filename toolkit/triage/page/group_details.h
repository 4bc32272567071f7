#pragma once

#include <cstddef>

#include "toolkit/triage/page/html.h"
#include "toolkit/triage/page/page_index.h"

namespace tarvo::toolkit {

/// Of a group's frames and of its reports not more are listed.
inline constexpr std::size_t kPageFrames = 20;
inline constexpr std::size_t kPageReports = 20;

/// What opens below a group's row: stack, variants, where it occurs, reports, similar groups and
/// missing symbols, in `<details>`. In at most `room` bytes, if `room` is at least some hundred:
/// with less room names are cut shorter, then lists, and at last there is only a note that says so.
[[nodiscard]] Html GroupDetails(const PageGroup& group, const PageIndex& index, std::size_t room);

}  // namespace tarvo::toolkit
