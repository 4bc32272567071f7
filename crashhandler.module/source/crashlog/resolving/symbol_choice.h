#pragma once

#include "crashlog/resolving/module_symbols.h"
#include "crashlog/resolving/symbol_lookup.h"
#include "tarvo/result.h"
#include "tarvo/symbol_file_source.h"

namespace tarvo::crashhandler {

/// The symbols of a module: what the archive has, `archived`, where it can be loaded and is not of
/// another build of the module; else the first that `source` finds and that can be loaded. Where
/// there is none, what `archived` says.
Result<ModuleSymbols> ChooseSymbols(const ModuleQuery& query, Result<ModuleSymbols> archived,
                                    SymbolFileSource& source, SymbolLookup& lookup);

}  // namespace tarvo::crashhandler
