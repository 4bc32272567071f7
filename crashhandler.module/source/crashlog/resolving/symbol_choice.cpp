#include "crashlog/resolving/symbol_choice.h"

#include <cstddef>

#include "crashlog/base/property_names.h"

namespace tarvo::crashhandler {
namespace {

/// Loads `request`; `source` is told when it cannot be.
Result<void> Load(const SymbolFileRequest& request, const ModuleQuery& query,
                  SymbolFileSource& source, SymbolLookup& lookup) {
  Result<void> loaded = lookup.Load(request);
  if (!loaded) source.Refused(query, request, loaded.GetError());
  return loaded;
}

/// Loads what the archive has under the module's name, completed by what is known of the module.
Result<void> LoadArchived(SymbolFileRequest& request, const ModuleQuery& query,
                          SymbolFileSource& source, SymbolLookup& lookup) {
  const Result<SymbolFileRequest> checked = source.Check(query, request);
  if (!checked) {
    source.Refused(query, request, checked.GetError());
    return checked.GetError();
  }
  request = *checked;
  return Load(request, query, source, lookup);
}

}  // namespace

Result<ModuleSymbols> ChooseSymbols(const ModuleQuery& query, Result<ModuleSymbols> archived,
                                    SymbolFileSource& source, SymbolLookup& lookup) {
  const Result<std::uint64_t> base = query.module.Get<std::uint64_t>(property::kBaseAddress);
  if (!base) return archived;
  Result<void> loaded;
  if (archived && archived->symbols) {
    loaded = LoadArchived(*archived->symbols, query, source, lookup);
    if (loaded) return archived;
  }
  for (std::size_t number = 0;; ++number) {
    const Result<SymbolFileRequest> found = source.Find(query, number);
    if (!found) break;
    if (Load(*found, query, source, lookup))
      return ModuleSymbols{*base, archived ? archived->build : String(), *found};
  }
  if (loaded || loaded.GetError().ClassId() != Error::kIllegalArgument) return archived;
  return ModuleSymbols{archived->baseAddress, archived->build, loaded.GetError(),
                       FrameOutcome::WrongSymbols};
}

}  // namespace tarvo::crashhandler
