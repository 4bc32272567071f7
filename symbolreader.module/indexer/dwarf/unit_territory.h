#pragma once

#include <llvm/DebugInfo/DWARF/DWARFContext.h>

#include <span>
#include <vector>

#include "indexer/ranges.h"

namespace tarvo::symbolreader {

/// A run of text that one unit answers for, or none.
struct TextRun {
  std::uint64_t start = 0;
  std::uint64_t end = 0;
  llvm::DWARFUnit* unit = nullptr;
};

/// Divides `text` among the units as a look-up by address does: by the table of address ranges
/// where a unit is listed there, by the unit's own ranges where it is not. Covers all of `text`,
/// ascending.
std::vector<TextRun> DivideText(llvm::DWARFContext& context, std::span<const AddressInterval> text);

}  // namespace tarvo::symbolreader
