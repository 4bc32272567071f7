#include "indexer/dwarf/line_map.h"

#include "indexer/dwarf/source_files.h"

namespace tarvo::symbolreader {
namespace {

using llvm::DWARFDebugLine;

/// A context's own cache of line tables is not made for several threads, so tables are parsed here.
bool Parse(llvm::DWARFContext& context, llvm::DWARFUnit& unit, DWARFDebugLine::LineTable& table) {
  const auto offset =
      llvm::dwarf::toSectionOffset(unit.getUnitDIE().find(llvm::dwarf::DW_AT_stmt_list));
  if (!offset) return false;
  std::uint64_t position = *offset + unit.getLineTableOffset();
  if (position >= unit.getLineSection().Data.size()) return false;
  llvm::DWARFDataExtractor data(context.getDWARFObj(), unit.getLineSection(),
                                context.isLittleEndian(), unit.getAddressByteSize());
  const auto ignore = [](llvm::Error error) { llvm::consumeError(std::move(error)); };
  if (llvm::Error error = table.parse(data, &position, context, &unit, ignore)) {
    ignore(std::move(error));
    return false;
  }
  return true;
}

}  // namespace

UnitLines::UnitLines(llvm::DWARFContext& context, const UnitEntries& unit, PartBuilder& part)
    : part_(part),
      isThere_(Parse(context, *unit.unit, table_)),
      directory_(unit.CompilationDirectory()) {}

/// The sequences come in the order of their ends; each holds from the end of the one before.
std::vector<LineInterval> UnitLines::Intervals() {
  intervals_.clear();
  if (!isThere_) return {};
  std::uint64_t reached = 0;
  for (const DWARFDebugLine::Sequence& sequence : table_.Sequences) {
    if (!sequence.isValid() || sequence.HighPC <= reached) continue;
    AddRows(sequence, reached);
    reached = sequence.HighPC;
  }
  return std::move(intervals_);
}

/// Of several rows at one address the last counts: the earlier ones are empty intervals. The last
/// row only ends the sequence.
void UnitLines::AddRows(const DWARFDebugLine::Sequence& sequence, std::uint64_t from) {
  for (unsigned i = sequence.FirstRowIndex; i + 1 < sequence.LastRowIndex; ++i) {
    const std::uint64_t start = std::max(table_.Rows[i].Address.Address, from);
    const std::uint64_t end = table_.Rows[i + 1].Address.Address;
    if (start < end) Add(start, end, table_.Rows[i]);
  }
}

void UnitLines::Add(std::uint64_t start, std::uint64_t end, const DWARFDebugLine::Row& row) {
  const std::uint32_t file = File(row.File);
  if (file == 0) return;
  if (!intervals_.empty()) {
    LineInterval& last = intervals_.back();
    if (last.end == start && last.file == file && last.line == row.Line) {
      last.end = end;
      return;
    }
  }
  intervals_.push_back({start, end, file, row.Line});
}

std::uint32_t UnitLines::File(std::uint64_t index) {
  if (!isThere_) return 0;
  const auto [entry, isNew] = files_.try_emplace(index, 0);
  if (!isNew) return entry->second;
  if (const auto path = SourcePath(table_.Prologue, index, directory_))
    entry->second = part_.NumberFile(*path, SourceChecksum(table_.Prologue, index));
  return entry->second;
}

}  // namespace tarvo::symbolreader
