#pragma once

#include <llvm/DebugInfo/DWARF/DWARFContext.h>
#include <llvm/DebugInfo/DWARF/DWARFDebugLine.h>

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "indexer/dwarf/unit_entries.h"
#include "indexer/ranges.h"
#include "indexer/writing/part_builder.h"

namespace tarvo::symbolreader {

/// A run of addresses of one line.
struct LineInterval {
  std::uint64_t start = 0;
  std::uint64_t end = 0;
  std::uint32_t file = 0;  ///< as the part numbers its paths
  std::uint32_t line = 0;  ///< 0 where the compiler names none
};

/// The line table of one unit, which is read for this and not kept elsewhere.
class UnitLines {
 public:
  /// The unit must have its first entry extracted. Its paths are numbered by `part`.
  UnitLines(llvm::DWARFContext& context, const UnitEntries& unit, PartBuilder& part);

  /// Ascending, without overlaps, neighbours of one line joined. Where sequences of rows overlap,
  /// the one that ends first counts. Rows of files that the table does not list are left out.
  [[nodiscard]] std::vector<LineInterval> Intervals();

  /// The part's number of the file that the table has at `index`; 0 where it lists none.
  [[nodiscard]] std::uint32_t File(std::uint64_t index);

 private:
  void AddRows(const llvm::DWARFDebugLine::Sequence& sequence, std::uint64_t from);
  void Add(std::uint64_t start, std::uint64_t end, const llvm::DWARFDebugLine::Row& row);

  PartBuilder& part_;
  llvm::DWARFDebugLine::LineTable table_;
  bool isThere_ = false;
  std::string directory_;
  std::unordered_map<std::uint64_t, std::uint32_t> files_;
  std::vector<LineInterval> intervals_;
};

}  // namespace tarvo::symbolreader
