#include "indexer/function_map.h"

#include <map>

namespace tarvo::symbolreader {
namespace {

using llvm::DWARFDie;

struct Run {
  std::uint64_t end = 0;
  DWARFDie die;
};

class FunctionMapBuilder {
 public:
  void Read(DWARFDie root);
  std::vector<FunctionInterval> Finish() const;

 private:
  void AddRanges(const DWARFDie& die);
  void Add(std::uint64_t start, std::uint64_t end, const DWARFDie& die);

  std::map<std::uint64_t, Run> runs_;  ///< by start
};

/// Entries in their order, parents before their children. Without recursion: how deep they nest is
/// the file's choice.
void FunctionMapBuilder::Read(DWARFDie root) {
  DWARFDie die = root;
  while (die) {
    if (die.isSubroutineDIE()) AddRanges(die);
    DWARFDie next = die.getFirstChild();
    while (!next && die && die != root) {
      next = die.getSibling();
      if (!next) die = die.getParent();
    }
    if (!next) return;
    die = next;
  }
}

void FunctionMapBuilder::AddRanges(const DWARFDie& die) {
  auto ranges = die.getAddressRanges();
  if (!ranges) return llvm::consumeError(ranges.takeError());
  for (const llvm::DWARFAddressRange& range : *ranges)
    if (range.LowPC < range.HighPC) Add(range.LowPC, range.HighPC, die);
}

/// Cuts the new run out of the one that holds its start. The runs behind stay: a look-up takes the
/// last run that starts at or below an address.
void FunctionMapBuilder::Add(std::uint64_t start, std::uint64_t end, const DWARFDie& die) {
  const auto behind = runs_.upper_bound(start);
  if (behind != runs_.begin()) {
    const auto around = std::prev(behind);
    if (start < around->second.end) {
      if (end < around->second.end) runs_[end] = around->second;
      if (start > around->first) around->second.end = start;
    }
  }
  runs_[start] = {end, die};
}

/// Whether the entry is inlined code of some function; nothing when no function is around it.
std::optional<bool> IsInlined(DWARFDie die) {
  const bool isInlined = !die.isSubprogramDIE();
  while (die && !die.isSubprogramDIE()) die = die.getParent();
  return die ? std::optional(isInlined) : std::nullopt;
}

std::vector<FunctionInterval> FunctionMapBuilder::Finish() const {
  std::vector<FunctionInterval> intervals;
  intervals.reserve(runs_.size());
  for (auto run = runs_.begin(); run != runs_.end(); ++run) {
    const auto next = std::next(run);
    const std::uint64_t end =
        next == runs_.end() ? run->second.end : std::min(run->second.end, next->first);
    if (const auto isInlined = IsInlined(run->second.die))
      intervals.push_back({run->first, end, run->second.die, *isInlined});
  }
  return intervals;
}

}  // namespace

std::vector<FunctionInterval> ReadFunctions(llvm::DWARFUnit& unit) {
  FunctionMapBuilder builder;
  builder.Read(unit.getUnitDIE(/*ExtractUnitDIEOnly=*/false));
  return builder.Finish();
}

}  // namespace tarvo::symbolreader
