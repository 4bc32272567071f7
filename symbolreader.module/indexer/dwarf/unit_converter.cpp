#include "indexer/dwarf/unit_converter.h"

#include <algorithm>

namespace tarvo::symbolreader {

Part UnitConverter::Convert(llvm::DWARFContext& context, const UnitEntries& unit,
                            const UnitEntries& functions, std::span<const TextRun> runs) {
  entries_ = functions;
  functions_ = ReadFunctions(*entries_);
  scopeNodes_.resize(functions_.scopes.size());
  lines_.emplace(context, unit, part_);
  Sweep(runs, lines_->Intervals());
  return part_.Finish();
}

Part UnitConverter::Convert(std::span<const TextRun> runs) {
  Sweep(runs, {});
  return part_.Finish();
}

/// Walks over the runs, from one place where an answer changes to the next.
void UnitConverter::Sweep(std::span<const TextRun> runs, std::span<const LineInterval> lines) {
  if (runs.empty()) return;
  const auto firstSymbol = std::ranges::partition_point(
      symbols_, [&](const SymbolInterval& symbol) { return symbol.end <= runs.front().start; });
  RangeCursor symbolCursor(
      symbols_.subspan(static_cast<std::size_t>(firstSymbol - symbols_.begin())));
  RangeCursor functionCursor(std::span<const FunctionInterval>(functions_.intervals));
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
}

void UnitConverter::AddAnswer(std::uint64_t start, std::uint64_t end, const Answers& answers) {
  const auto& [function, symbol, line] = answers;
  if (function == nullptr && symbol == nullptr && line == nullptr) return;
  PartRow row{.node = NodeOf(answers)};
  if (line != nullptr) {
    row.file = line->file;
    row.line = line->line;
  } else {
    const bool isInlined =
        function != nullptr && functions_.scopes[function->scope].caller != kNoScope;
    if (symbol != nullptr && !isInlined) row.file = part_.NumberPath(symbol->file);
  }
  part_.AddRow(start, end, row);
}

/// 0 where no function is known.
std::uint64_t UnitConverter::NodeOf(const Answers& answers) {
  if (answers.function != nullptr) return NodeOf(answers.function->scope, answers.symbol);
  return answers.symbol == nullptr ? 0 : SymbolNode(*answers.symbol, answers.line != nullptr);
}

std::uint64_t UnitConverter::SymbolNode(const SymbolInterval& symbol, bool isKnownOtherwise) {
  MadeNode& made = symbolNodes_[isKnownOtherwise ? 1 : 0];
  if (made.symbol == &symbol) return made.node;
  const std::uint32_t name = part_.NumberName(symbol.name);
  made = {&symbol,
          isKnownOtherwise ? part_.AddNode({.name = name}) : part_.AddSymbol(name, symbol.start)};
  return made.node;
}

/// Callers first, without recursion: how deep they nest is the file's choice. A symbol names the
/// outermost one, so where another symbol begins all are made anew.
std::uint64_t UnitConverter::NodeOf(std::uint32_t scope, const SymbolInterval* symbol) {
  const auto isMade = [&](std::uint32_t number) {
    return scopeNodes_[number].node != 0 && scopeNodes_[number].symbol == symbol;
  };
  if (isMade(scope)) return scopeNodes_[scope].node;
  std::vector<std::uint32_t> missing;
  for (std::uint32_t next = scope; next != kNoScope && !isMade(next);
       next = functions_.scopes[next].caller)
    missing.push_back(next);
  for (; !missing.empty(); missing.pop_back()) {
    const std::uint32_t number = missing.back();
    const FunctionScope& function = functions_.scopes[number];
    PartNode node;
    if (function.caller == kNoScope) {
      node.name = symbol != nullptr ? part_.NumberName(symbol->name) : NameOf(function);
    } else {
      node = {.name = NameOf(function),
              .caller = scopeNodes_[function.caller].node,
              .callFile = lines_->File(function.callFile),
              .callLine = function.callLine};
    }
    scopeNodes_[number] = {symbol, part_.AddNode(node)};
  }
  return scopeNodes_[scope].node;
}

/// Most inlined functions have their names in an entry that they share.
std::uint32_t UnitConverter::NameOf(const FunctionScope& scope) {
  ByteCursor cursor(entries_->Bytes(), scope.offset);
  const Abbreviation* abbreviation = entries_->abbreviations->Find(cursor.ReadLeb());
  const FunctionEntry entry = entries_->ReadFunction(*abbreviation, scope.offset, cursor);
  const bool isShared = entry.origin && !entry.linkageName && !entry.name && !entry.declaration &&
                        entry.origin.number < entries_->unit->getInfoSection().Data.size();
  if (!isShared) return part_.NumberName(symbolreader::NameOf(*entries_, entry));
  // One number in two forms is two entries: a unit's, or the section's. The last keys are the
  // map's.
  const std::uint64_t key = entry.origin.number << 16 | entry.origin.form;
  const auto [known, isNew] = namesOfEntries_.try_emplace(key, 0);
  if (isNew) {
    const std::uint32_t name = part_.NumberName(symbolreader::NameOf(*entries_, entry));
    return namesOfEntries_[key] = name;
  }
  return known->second;
}

}  // namespace tarvo::symbolreader
