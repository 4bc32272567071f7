#pragma once

#include <llvm/ADT/DenseMap.h>
#include <llvm/ADT/StringRef.h>
#include <llvm/DebugInfo/DWARF/DWARFContext.h>

#include <span>
#include <vector>

#include "indexer/function_map.h"
#include "indexer/index_writer.h"
#include "indexer/line_map.h"
#include "indexer/symbol_map.h"
#include "indexer/unit_territory.h"

namespace tarvo::symbolreader {

/// Turns runs of text into index entries: one for each thread. What an address gets:
///
/// - the name of the innermost function when it is inlined there; else the symbol at the address
///   (it knows the parts into which compilers split functions), else the function's name: the
///   linkage name or, without one, the plain name;
/// - file and line of its line row, also where no function is; else the file of a local symbol and
///   line 0.
class UnitConverter {
 public:
  /// `symbols` outlives the converter.
  UnitConverter(std::span<const SymbolInterval> symbols, IndexWriter& writer)
      : symbols_(symbols), writer_(writer) {}

  /// Converts the text of `unit`, whose entries are extracted; `context` is the unit's.
  void Convert(llvm::DWARFContext& context, llvm::DWARFUnit& unit, std::span<const TextRun> runs);
  /// Converts text that no unit answers for, from the symbols alone.
  void Convert(std::span<const TextRun> runs);

 private:
  struct Answers;

  void Sweep(std::span<const TextRun> runs, std::span<const FunctionInterval> functions,
             std::span<const LineInterval> lines);
  void AddAnswer(std::uint64_t start, std::uint64_t end, const Answers& answers);
  std::uint32_t NameOf(const FunctionInterval* function, const SymbolInterval* symbol);
  std::uint32_t Number(llvm::StringRef mangledName);

  std::span<const SymbolInterval> symbols_;
  IndexWriter& writer_;
  EntryBuilder entries_;
  llvm::DenseMap<llvm::StringRef, std::uint32_t> names_;  ///< numbers of mangled names
};

}  // namespace tarvo::symbolreader
