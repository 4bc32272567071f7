#include "indexer/writing/function_map.h"

#include <llvm/BinaryFormat/Dwarf.h>

#include <algorithm>
#include <map>
#include <memory_resource>

namespace tarvo::symbolreader {
namespace {

using llvm::DWARFAddressRangesVector;

struct Run {
  std::uint64_t end = 0;
  std::uint32_t scope = 0;
};

/// The runs of a unit by their starts.
class RunMap {
 public:
  /// Cuts the new run out of the one that holds its start. The runs behind stay: a look-up takes
  /// the last run that starts at or below an address.
  void Add(std::uint64_t start, std::uint64_t end, std::uint32_t scope) {
    const auto behind = runs_.upper_bound(start);
    if (behind != runs_.begin()) {
      const auto around = std::prev(behind);
      if (start < around->second.end) {
        if (end < around->second.end) runs_[end] = around->second;
        if (start > around->first) around->second.end = start;
      }
    }
    runs_[start] = {end, scope};
  }

  [[nodiscard]] std::vector<FunctionInterval> Intervals() const {
    std::vector<FunctionInterval> intervals;
    intervals.reserve(runs_.size());
    for (auto run = runs_.begin(); run != runs_.end(); ++run) {
      const auto next = std::next(run);
      const std::uint64_t end =
          next == runs_.end() ? run->second.end : std::min(run->second.end, next->first);
      intervals.push_back({run->first, end, run->second.scope});
    }
    return intervals;
  }

 private:
  std::pmr::monotonic_buffer_resource memory_;
  std::pmr::map<std::uint64_t, Run> runs_{&memory_};
};

std::uint32_t Narrow(const RawValue& value) {
  const std::uint64_t number = UnitEntries::ConstantOf(value).value_or(0);
  return number <= std::numeric_limits<std::uint32_t>::max() ? static_cast<std::uint32_t>(number)
                                                             : 0;
}

/// Walks over the entries of a unit in their order, parents before their children.
class FunctionReader {
 public:
  explicit FunctionReader(const UnitEntries& unit) : unit_(unit) {}

  UnitFunctions Read() {
    const std::string_view bytes = unit_.Bytes();
    ByteCursor cursor(bytes, unit_.FirstEntry());
    while (!cursor.HasFailed() && cursor.Offset() < bytes.size() && Step(cursor)) {
    }
    functions_.intervals = runs_.Intervals();
    // Inlined code that no function is around has no name that others would give it either.
    std::erase_if(functions_.intervals,
                  [](const FunctionInterval& run) { return run.scope == kNoScope; });
    return std::move(functions_);
  }

 private:
  /// Passes one entry, or the end of a row of siblings. False at the unit's end.
  bool Step(ByteCursor& cursor) {
    const std::uint64_t offset = cursor.Offset();
    const std::uint64_t code = cursor.ReadLeb();
    if (code == 0) return Leave();
    const Abbreviation* abbreviation = unit_.abbreviations->Find(code);
    if (abbreviation == nullptr) return false;
    if (abbreviation->hasNoCode && PassSubtree(*abbreviation, cursor)) return !levels_.empty();
    std::uint32_t inside = scope_;
    if (abbreviation->isFunction)
      inside = AddFunction(*abbreviation, unit_.ReadFunction(*abbreviation, offset, cursor));
    else
      unit_.abbreviations->Skip(*abbreviation, cursor);
    if (!abbreviation->hasChildren) return !levels_.empty();
    levels_.push_back(scope_);
    scope_ = inside;
    return true;
  }

  bool Leave() {
    if (levels_.empty()) return false;
    scope_ = levels_.back();
    levels_.pop_back();
    return !levels_.empty();
  }

  /// Whether the sibling lies ahead, where the cursor now is; else it is as it was.
  bool PassSubtree(const Abbreviation& abbreviation, ByteCursor& cursor) const {
    ByteCursor ahead = cursor;
    const std::uint64_t sibling = unit_.ReadSibling(abbreviation, ahead);
    if (ahead.HasFailed() || sibling < ahead.Offset() || sibling >= unit_.Bytes().size())
      return false;
    cursor = ByteCursor(unit_.Bytes(), sibling);
    return true;
  }

  std::uint32_t AddFunction(const Abbreviation& abbreviation, const FunctionEntry& entry) {
    const bool isInlined = abbreviation.tag == llvm::dwarf::DW_TAG_inlined_subroutine;
    const bool isInFunction = !isInlined || scope_ != kNoScope;
    std::uint32_t scope = kNoScope;
    if (isInFunction) {
      scope = static_cast<std::uint32_t>(functions_.scopes.size());
      functions_.scopes.push_back({.offset = entry.offset,
                                   .caller = isInlined ? scope_ : kNoScope,
                                   .callFile = Narrow(entry.callFile),
                                   .callLine = Narrow(entry.callLine)});
    }
    AddRuns(entry, scope);
    return scope;
  }

  void AddRuns(const FunctionEntry& entry, std::uint32_t scope) {
    if (const auto low = unit_.AddressOf(entry.lowPc); low && entry.highPc) {
      const auto tombstone = llvm::dwarf::computeTombstoneAddress(unit_.unit->getAddressByteSize());
      if (*low == tombstone) return;
      const auto end = unit_.AddressOf(entry.highPc);
      const auto size = UnitEntries::ConstantOf(entry.highPc);
      const std::uint64_t high = end ? *end : *low + size.value_or(0);
      if (*low < high) runs_.Add(*low, high, scope);
      return;
    }
    if (!entry.ranges) return;
    auto ranges =
        entry.ranges.form == llvm::dwarf::DW_FORM_rnglistx
            ? unit_.unit->findRnglistFromIndex(static_cast<std::uint32_t>(entry.ranges.number))
            : unit_.unit->findRnglistFromOffset(entry.ranges.number);
    if (!ranges) return llvm::consumeError(ranges.takeError());
    for (const llvm::DWARFAddressRange& range : *ranges)
      if (range.LowPC < range.HighPC) runs_.Add(range.LowPC, range.HighPC, scope);
  }

  const UnitEntries& unit_;
  UnitFunctions functions_;
  RunMap runs_;
  std::uint32_t scope_ = kNoScope;     ///< around the entries that come
  std::vector<std::uint32_t> levels_;  ///< the same, of the entries around
};

}  // namespace

UnitFunctions ReadFunctions(const UnitEntries& unit) { return FunctionReader(unit).Read(); }

}  // namespace tarvo::symbolreader
