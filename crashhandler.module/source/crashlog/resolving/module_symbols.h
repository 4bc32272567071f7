#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "crashlog/resolving/symbol_lookup.h"
#include "crashlog/symbols/symbol_cache.h"
#include "tarvo/data_dictionary.h"
#include "tarvo/inline_symbolification.h"
#include "tarvo/result.h"
#include "tarvo/symbol_file_source.h"
#include "tarvo/url.h"

namespace tarvo::crashhandler {

/// What the frames of one module need to be resolved.
struct ModuleSymbols {
  std::uint64_t baseAddress = 0;  ///< what offsets count from
  String build;                   ///< empty where the report has none
  Result<SymbolFileRequest> symbols;
  FrameOutcome outcome = FrameOutcome::Resolved;  ///< the kind of failure, where that is an error
};

/// The loaded modules of a crash log by name, with their symbols. A module's symbols are looked for
/// when the first frame in it asks for them, and not again. Looking a module up takes constant time
/// however many a report lists. Used by one thread.
class ModuleTable {
 public:
  /// `crashLog` must outlive the table and keep its ApplicationInfo and its threads' properties;
  /// `lookup` too. `source` may be null.
  ModuleTable(const DataDictionary& crashLog, const Url& archiveDirectory,
              const Url& temporaryDirectory, SymbolLookup& lookup, Ref<SymbolFileSource> source);

  /// The symbols of the first module named exactly `name`, or the error of reading its entry; null
  /// when no such module is listed. Valid as long as the table.
  [[nodiscard]] const Result<ModuleSymbols>* Find(const String& name);

 private:
  [[nodiscard]] Result<ModuleSymbols> Prepare(const DataDictionary& module);
  [[nodiscard]] Result<ModuleSymbols> FromArchive(const DataDictionary& module);

  const DataDictionary& crashLog_;
  DataArray modules_;
  DataDictionary positions_;  ///< of each name's first module in modules_
  std::vector<std::optional<Result<ModuleSymbols>>> symbols_;
  SymbolCache cache_;
  SymbolLookup& lookup_;
  Ref<SymbolFileSource> source_;
};

}  // namespace tarvo::crashhandler
