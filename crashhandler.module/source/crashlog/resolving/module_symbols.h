#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "crashlog/symbols/symbol_cache.h"
#include "tarvo/data_dictionary.h"
#include "tarvo/result.h"
#include "tarvo/url.h"

namespace tarvo::crashhandler {

/// What the frames of one module need to be resolved.
struct ModuleSymbols {
  std::uint64_t baseAddress = 0;  ///< what offsets count from
  String build;
  BundleSearch symbols;
};

/// The loaded modules of a crash log by name, with their symbols. A module's symbols are looked for
/// when the first frame in it asks for them, and not again. Looking a module up takes constant time
/// however many a report lists. Used by one thread.
class ModuleTable {
 public:
  /// `crashLog` must outlive the table and keep its ApplicationInfo.
  ModuleTable(const DataDictionary& crashLog, const Url& archiveDirectory,
              const Url& temporaryDirectory);

  /// The symbols of the first module named exactly `name`, or the error of reading its entry; null
  /// when no such module is listed. Valid as long as the table.
  [[nodiscard]] const Result<ModuleSymbols>* Find(const String& name);

 private:
  [[nodiscard]] Result<ModuleSymbols> Prepare(const DataDictionary& module);

  const DataDictionary& crashLog_;
  DataArray modules_;
  DataDictionary positions_;  ///< of each name's first module in modules_
  std::vector<std::optional<Result<ModuleSymbols>>> symbols_;
  SymbolCache cache_;
};

}  // namespace tarvo::crashhandler
