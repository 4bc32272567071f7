#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "tarvo/report/normalize.h"

namespace tarvo::report {

/// What Normalized gives, and how its lines are those of the report.
struct NormalizedReport {
  std::string text;
  /// The number, from 1, of the one line that the report does not have; 0 where there is none. All
  /// others stand in the order of the report's, one for each.
  std::size_t addedLine = 0;
};

[[nodiscard]] NormalizedReport Normalize(std::string_view report,
                                         ReturnAddressAdjustment adjustment);

}  // namespace tarvo::report
