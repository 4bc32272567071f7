#include "crashlog/resolving/symbol_choice.h"

#include <cstddef>

#include "crashlog/base/property_names.h"

namespace tarvo::crashhandler {
namespace {

/// Whether `request` can be loaded; `source` is told when it cannot.
bool Serves(const SymbolFileRequest& request, const ModuleQuery& query, SymbolFileSource& source,
            SymbolLookup& lookup) {
  const Result<void> loaded = lookup.Load(request);
  if (!loaded) source.Refused(query, request, loaded.GetError());
  return static_cast<bool>(loaded);
}

}  // namespace

Result<ModuleSymbols> ChooseSymbols(const ModuleQuery& query, Result<ModuleSymbols> archived,
                                    SymbolFileSource& source, SymbolLookup& lookup) {
  const Result<std::uint64_t> base = query.module.Get<std::uint64_t>(property::kBaseAddress);
  if (!base) return archived;
  if (archived && archived->symbols) {
    archived->symbols->id = source.IdOf(query);
    if (Serves(*archived->symbols, query, source, lookup)) return archived;
  }
  for (std::size_t number = 0;; ++number) {
    const Result<SymbolFileRequest> found = source.Find(query, number);
    if (!found) return archived;
    if (Serves(*found, query, source, lookup))
      return ModuleSymbols{*base, archived ? archived->build : String(), *found};
  }
}

}  // namespace tarvo::crashhandler
