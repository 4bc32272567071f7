#include <utility>

#include "connection.h"
#include "crashlog/application_info.h"
#include "crashlog/crash_log.h"
#include "crashlog/module_symbols.h"
#include "crashlog/property_names.h"
#include "crashlog/resolve_messages.h"
#include "tarvo/symbolification.h"

namespace tarvo::crashhandler {
namespace {

/// What an address stands for.
struct SourcePosition {
  String function;
  String sourceFile;
  std::int64_t line = 0;
};

/// Resolves the frames of one crash log, one by one.
class FrameResolver {
 public:
  /// `crashLog` is the one whose frames are resolved; it outlives the resolver.
  FrameResolver(const DataDictionary& crashLog, const Url& archiveDirectory,
                const Url& temporaryDirectory, SymbolificationRef symbolification)
      : architecture_(ApplicationArchitecture(crashLog)),
        modules_(crashLog, archiveDirectory, temporaryDirectory),
        symbolification_(std::move(symbolification)) {}

  /// Completes `frame`, or leaves it as it is and says why.
  void Resolve(DataDictionary& frame) {
    const auto* name = frame.FindAs<String>(property::kModuleName);
    const auto* address = frame.FindAs<std::uint64_t>(property::kAddress);
    if (name == nullptr || address == nullptr) return;
    const Result<ModuleSymbols>* module = modules_.Find(*name);
    if (module == nullptr) return;
    if (!*module) return ShowUnresolvedFrame(frame);
    const auto& [baseAddress, symbolFile] = **module;
    if (!symbolFile) return ShowSymbolFileError(symbolFile.GetError());
    const Result<SourcePosition> position = LookUp(*symbolFile, *address - baseAddress);
    if (!position) return ShowUnresolvedFrame(frame);
    frame.Set(property::kFunctionName, position->function);
    frame.Set(property::kSourceFileName, position->sourceFile);
    frame.Set(property::kSourceLine, position->line);
    ShowResolvedFrame(frame);
  }

 private:
  Result<SourcePosition> LookUp(const Url& symbolFile, std::uint64_t offset) {
    SourcePosition position;
    if (Result<void> loaded = symbolification_->Load(symbolFile, architecture_); !loaded)
      return loaded.GetError();
    Result<void> resolved =
        symbolification_->Resolve(offset, position.sourceFile, position.line, position.function);
    if (!resolved) return resolved.GetError();
    return position;
  }

  String architecture_;
  ModuleTable modules_;
  SymbolificationRef symbolification_;
};

/// Calls `visit` for each dictionary in the array `key` of `parent`, to change it in place.
template <typename Visit>
void ForEachDictionary(DataDictionary& parent, std::string_view key, Visit visit) {
  DataValue* value = parent.FindMutable(key);
  auto* array = value == nullptr ? nullptr : value->As<DataArray>();
  if (array == nullptr) return;
  for (std::size_t i = 0; i < array->Size(); ++i)
    if (auto* element = array->Mutable(i).As<DataDictionary>()) visit(*element);
}

}  // namespace

Result<void> CrashLog::Resolve(const Url& archiveDirectory, const Url& temporaryDirectory) {
  Result<SymbolificationRef> symbolification = Bind<Symbolification>(*g_tarvo.framework);
  if (!symbolification) return symbolification.GetError();
  FrameResolver resolver(data_, archiveDirectory, temporaryDirectory, *std::move(symbolification));
  ForEachDictionary(data_, property::kThreads, [&](DataDictionary& thread) {
    ShowThread(thread);
    ForEachDictionary(thread, property::kCallstack,
                      [&](DataDictionary& frame) { resolver.Resolve(frame); });
  });
  return {};
}

}  // namespace tarvo::crashhandler
