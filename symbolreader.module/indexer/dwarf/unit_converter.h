#pragma once

#include <llvm/ADT/DenseMap.h>
#include <llvm/DebugInfo/DWARF/DWARFContext.h>

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "indexer/dwarf/line_map.h"
#include "indexer/dwarf/unit_entries.h"
#include "indexer/dwarf/unit_territory.h"
#include "indexer/writing/function_map.h"
#include "indexer/writing/part_builder.h"
#include "indexer/writing/symbol_map.h"

namespace tarvo::symbolreader {

/// Turns runs of text into a part of the index: one object for each part. What an address gets:
///
/// - the functions there, innermost first: those inlined by their linkage names or, without one,
///   their plain ones; the outermost by the name of the symbol at the address (it knows the parts
///   into which compilers split functions), else as the others;
/// - file and line of its line row, also where no function is; else the file of a local symbol and
///   line 0; for each caller file and line of the call.
class UnitConverter {
 public:
  /// `symbols` outlives the converter. `namesLast` is PartBuilder's, for the unit's functions.
  UnitConverter(std::span<const SymbolInterval> symbols, bool namesLast)
      : symbols_(symbols), part_(namesLast) {}

  /// Converts the text of a unit; `functions` is the same, or where its functions are split off the
  /// unit that has them. `context` is that of the first.
  Part Convert(llvm::DWARFContext& context, const UnitEntries& unit, const UnitEntries& functions,
               std::span<const TextRun> runs);
  /// Converts text that no unit answers for, from the symbols alone.
  Part Convert(std::span<const TextRun> runs);

 private:
  /// What is at one run of addresses; null where nothing is.
  struct Answers {
    const FunctionInterval* function = nullptr;
    const SymbolInterval* symbol = nullptr;
    const LineInterval* line = nullptr;
  };
  /// The node that was made for a scope, or none, together with a symbol.
  struct MadeNode {
    const SymbolInterval* symbol = nullptr;
    std::uint64_t node = 0;
  };

  void Sweep(std::span<const TextRun> runs, std::span<const LineInterval> lines);
  void AddAnswer(std::uint64_t start, std::uint64_t end, const Answers& answers);
  [[nodiscard]] std::uint64_t NodeOf(const Answers& answers);
  [[nodiscard]] std::uint64_t NodeOf(std::uint32_t scope, const SymbolInterval* symbol);
  [[nodiscard]] std::uint64_t SymbolNode(const SymbolInterval& symbol, bool isKnownOtherwise);
  [[nodiscard]] std::uint32_t NameOf(const FunctionScope& scope);

  std::span<const SymbolInterval> symbols_;
  PartBuilder part_;
  std::optional<UnitEntries> entries_;
  std::optional<UnitLines> lines_;
  UnitFunctions functions_;
  std::vector<MadeNode> scopeNodes_;  ///< of each scope the last one
  MadeNode symbolNodes_[2];           ///< the last ones of SymbolNode, by its flag
  llvm::DenseMap<std::uint64_t, std::uint32_t> namesOfEntries_;
};

}  // namespace tarvo::symbolreader
