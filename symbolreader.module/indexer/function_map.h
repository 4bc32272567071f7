#pragma once

#include <llvm/DebugInfo/DWARF/DWARFDie.h>
#include <llvm/DebugInfo/DWARF/DWARFUnit.h>

#include <vector>

#include "indexer/ranges.h"

namespace tarvo::symbolreader {

/// A run of addresses with one innermost function.
struct FunctionInterval {
  std::uint64_t start = 0;
  std::uint64_t end = 0;
  llvm::DWARFDie die;
  bool isInlined = false;  ///< into a function around it
};

/// The functions of a unit whose entries are extracted, ascending, without overlaps. An inlined
/// function cuts its run out of the function around it; where functions overlap that do not hold
/// each other, the one that comes later in the unit counts.
std::vector<FunctionInterval> ReadFunctions(llvm::DWARFUnit& unit);

}  // namespace tarvo::symbolreader
