#pragma once

#include <cstdint>
#include <limits>
#include <vector>

#include "indexer/dwarf/unit_entries.h"
#include "indexer/ranges.h"

namespace tarvo::symbolreader {

inline constexpr std::uint32_t kNoScope = std::numeric_limits<std::uint32_t>::max();

/// A function that has code of its own, or is inlined at some place.
struct FunctionScope {
  std::uint64_t offset = 0;         ///< of its entry
  std::uint32_t caller = kNoScope;  ///< the one that it is inlined into
  std::uint32_t callFile = 0;       ///< as the unit's line table numbers files
  std::uint32_t callLine = 0;
};

/// A run of addresses with one innermost function.
struct FunctionInterval {
  std::uint64_t start = 0;
  std::uint64_t end = 0;
  std::uint32_t scope = 0;
};

/// The functions of a unit, callers before what is inlined into them, and their intervals,
/// ascending, without overlaps. An inlined function cuts its run out of the function around it;
/// where functions overlap that do not hold each other, the one that comes later in the unit
/// counts.
struct UnitFunctions {
  std::vector<FunctionScope> scopes;
  std::vector<FunctionInterval> intervals;
};

[[nodiscard]] UnitFunctions ReadFunctions(const UnitEntries& unit);

}  // namespace tarvo::symbolreader
