#pragma once

#include <cstdint>

#include "tarvo/registration.h"

namespace tarvo::crashhandler {

/// How much a resolve writes to the console; the values of g_crashlogResolveDiagnosticOutput.
enum class ResolveDiagnostics : std::int64_t {
  None = 0,    ///< nothing
  Errors = 1,  ///< errors, and the progress of long extractions
  All = 2,     ///< also every thread and every resolved frame
};

/// The resolver's entries. Set by the host before the module is initialised, not changed by the
/// module.
extern std::int64_t g_crashlogResolveDiagnosticOutput;
extern bool g_optimizeSymbolFileSearch;  ///< see FindSymbolArchive

/// Whether the console is to show what belongs to `level`.
[[nodiscard]] inline bool ShowsDiagnostics(ResolveDiagnostics level) noexcept {
  return g_crashlogResolveDiagnosticOutput >= static_cast<std::int64_t>(level);
}

/// Registers the two entries and the enumeration RESOLVEDIAGNOSTICS. When the module is loaded.
void RegisterCrashlog(Registration& registration);

}  // namespace tarvo::crashhandler
