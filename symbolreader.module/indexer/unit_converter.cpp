#include "indexer/unit_converter.h"

#include "index/index_format.h"
#include "indexer/demangle.h"

namespace tarvo::symbolreader {

/// What is at one run of addresses; null where nothing is.
struct UnitConverter::Answers {
  const FunctionInterval* function = nullptr;
  const SymbolInterval* symbol = nullptr;
  const LineInterval* line = nullptr;
};

void UnitConverter::Convert(llvm::DWARFContext& context, llvm::DWARFUnit& unit,
                            std::span<const TextRun> runs) {
  const auto functions = ReadFunctions(unit);
  const auto lines = ReadLines(
      context, unit, [this](const std::string& path) { return writer_.NumberFile(path); });
  Sweep(runs, functions, lines);
}

void UnitConverter::Convert(std::span<const TextRun> runs) { Sweep(runs, {}, {}); }

/// Walks over the runs, from one place where an answer changes to the next.
void UnitConverter::Sweep(std::span<const TextRun> runs,
                          std::span<const FunctionInterval> functions,
                          std::span<const LineInterval> lines) {
  if (runs.empty()) return;
  const auto firstSymbol = std::ranges::partition_point(
      symbols_, [&](const SymbolInterval& symbol) { return symbol.end <= runs.front().start; });
  RangeCursor symbolCursor(
      symbols_.subspan(static_cast<std::size_t>(firstSymbol - symbols_.begin())));
  RangeCursor functionCursor(functions);
  RangeCursor lineCursor(lines);
  for (const TextRun& run : runs) {
    for (std::uint64_t start = run.start; start < run.end;) {
      const auto function = functionCursor.At(start);
      const auto symbol = symbolCursor.At(start);
      const auto line = lineCursor.At(start);
      const std::uint64_t end = std::min({run.end, function.end, symbol.end, line.end});
      AddAnswer(start, end, {function.range, symbol.range, line.range});
      start = end;
    }
  }
  writer_.Add(entries_.Finish());
}

void UnitConverter::AddAnswer(std::uint64_t start, std::uint64_t end, const Answers& answers) {
  const auto& [function, symbol, line] = answers;
  const std::uint32_t name = NameOf(function, symbol);
  if (line != nullptr) {
    const IndexRow row{start, line->file, line->line};
    return entries_.Add(start, end, name != 0 ? name : Number(kNoFunction), &row);
  }
  if (name == 0) return;
  const bool isInlined = function != nullptr && function->isInlined;
  if (symbol == nullptr || symbol->file.empty() || isInlined)
    return entries_.Add(start, end, name, nullptr);
  const IndexRow row{start, writer_.NumberFile(symbol->file.str()), 0};
  entries_.Add(start, end, name, &row);
}

/// 0 when nothing has a name.
std::uint32_t UnitConverter::NameOf(const FunctionInterval* function,
                                    const SymbolInterval* symbol) {
  const bool isInlined = function != nullptr && function->isInlined;
  if (symbol != nullptr && !isInlined) return Number(symbol->name);
  if (function == nullptr) return 0;
  const char* name = function->die.getSubroutineName(llvm::DINameKind::LinkageName);
  return name == nullptr ? Number(kNoFunction) : Number(name);
}

std::uint32_t UnitConverter::Number(llvm::StringRef mangledName) {
  const auto [entry, isNew] = names_.try_emplace(mangledName, 0);
  if (isNew) entry->second = writer_.NumberName(Demangle(std::string_view(mangledName)));
  return entry->second;
}

}  // namespace tarvo::symbolreader
