#include <array>

#include "crashlog/base/configuration.h"

namespace tarvo::crashhandler {
namespace {

constexpr std::int64_t Value(ResolveDiagnostics level) { return static_cast<std::int64_t>(level); }

constexpr std::array kResolveDiagnostics = {
    EnumerationValue{"NONE", Value(ResolveDiagnostics::None)},
    EnumerationValue{"ERRORS", Value(ResolveDiagnostics::Errors)},
    EnumerationValue{"ALL", Value(ResolveDiagnostics::All)},
};

}  // namespace

std::int64_t g_crashlogResolveDiagnosticOutput = Value(ResolveDiagnostics::Errors);
bool g_optimizeSymbolFileSearch = true;

void RegisterCrashlog(Registration& registration) {
  registration.enumerations.push_back(
      {.name = "RESOLVEDIAGNOSTICS", .values = kResolveDiagnostics});
  registration.configuration.DeclareInt(
      "g_crashlogResolveDiagnosticOutput", g_crashlogResolveDiagnosticOutput,
      Value(ResolveDiagnostics::Errors), Value(ResolveDiagnostics::None),
      Value(ResolveDiagnostics::All), kGeneralCategory,
      "Output for resolved crash log (0: none 1: errors only, 2: dump resolved crash log)");
  registration.configuration.DeclareBool(
      "g_optimizeSymbolFileSearch", g_optimizeSymbolFileSearch, true, kGeneralCategory,
      "True: Expect symbol files to be stored in a two directory hierarchy. False: Use slow "
      "recursive search.");
}

}  // namespace tarvo::crashhandler
