#pragma once

#include <llvm/DebugInfo/DWARF/DWARFContext.h>

#include <functional>
#include <string>
#include <vector>

#include "indexer/ranges.h"

namespace tarvo::symbolreader {

/// A run of addresses of one line.
struct LineInterval {
  std::uint64_t start = 0;
  std::uint64_t end = 0;
  std::uint32_t file = 0;  ///< as the writer of the index numbers them
  std::uint32_t line = 0;  ///< 0 where the compiler names none
};

/// Gives a file's number in the index.
using NumberFile = std::function<std::uint32_t(const std::string& path)>;

/// The line table of a unit, ascending, without overlaps, neighbours of one line joined. Where
/// sequences of rows overlap, the one that ends first counts. Rows of files that the table does not
/// list are left out. The table is parsed for this call and not kept.
std::vector<LineInterval> ReadLines(llvm::DWARFContext& context, llvm::DWARFUnit& unit,
                                    const NumberFile& numberFile);

}  // namespace tarvo::symbolreader
