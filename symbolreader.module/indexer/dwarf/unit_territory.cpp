#include "indexer/dwarf/unit_territory.h"

#include <llvm/DebugInfo/DWARF/DWARFCompileUnit.h>
#include <llvm/DebugInfo/DWARF/DWARFDebugArangeSet.h>
#include <llvm/DebugInfo/DWARF/DWARFDebugAranges.h>

namespace tarvo::symbolreader {
namespace {

void AddListedBorders(llvm::DWARFContext& context, std::vector<std::uint64_t>& borders) {
  const llvm::DWARFDataExtractor data(context.getDWARFObj().getArangesSection(),
                                      context.isLittleEndian(), 0);
  const auto ignore = [](llvm::Error error) { llvm::consumeError(std::move(error)); };
  std::uint64_t offset = 0;
  llvm::DWARFDebugArangeSet set;
  while (data.isValidOffset(offset)) {
    if (llvm::Error error = set.extract(data, &offset, ignore)) return ignore(std::move(error));
    for (const auto& range : set.descriptors()) {
      borders.push_back(range.Address);
      borders.push_back(range.getEndAddress());
    }
  }
}

/// Every address at which the answering unit may change, ascending.
std::vector<std::uint64_t> Borders(llvm::DWARFContext& context) {
  std::vector<std::uint64_t> borders;
  AddListedBorders(context, borders);
  for (const auto& unit : context.compile_units()) {
    auto ranges = unit->collectAddressRanges();
    if (!ranges) {
      llvm::consumeError(ranges.takeError());
      continue;
    }
    for (const llvm::DWARFAddressRange& range : *ranges) {
      borders.push_back(range.LowPC);
      borders.push_back(range.HighPC);
    }
  }
  std::ranges::sort(borders);
  const auto rest = std::ranges::unique(borders);
  borders.erase(rest.begin(), rest.end());
  return borders;
}

}  // namespace

std::vector<TextRun> DivideText(llvm::DWARFContext& context,
                                std::span<const AddressInterval> text) {
  const std::vector<std::uint64_t> borders = Borders(context);
  const llvm::DWARFDebugAranges& ranges = *context.getDebugAranges();
  std::vector<TextRun> runs;
  for (const AddressInterval& section : text) {
    auto next = std::ranges::upper_bound(borders, section.start);
    for (std::uint64_t start = section.start; start < section.end;) {
      const std::uint64_t end =
          next == borders.end() ? section.end : std::min(*next++, section.end);
      llvm::DWARFUnit* unit = context.getCompileUnitForOffset(ranges.findAddress(start));
      const bool continues = !runs.empty() && runs.back().end == start && runs.back().unit == unit;
      if (continues)
        runs.back().end = end;
      else
        runs.push_back({start, end, unit});
      start = end;
    }
  }
  return runs;
}

}  // namespace tarvo::symbolreader
