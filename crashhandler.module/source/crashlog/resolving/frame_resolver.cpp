#include "crashlog/resolving/frame_resolver.h"

#include <utility>

#include "connection.h"
#include "crashlog/base/property_names.h"
#include "crashlog/resolving/application_info.h"
#include "crashlog/resolving/module_symbols.h"
#include "crashlog/resolving/resolve_messages.h"
#include "tarvo/resolve_observer.h"
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
  /// `crashLog` is the one whose frames are resolved; it outlives the resolver. `observer` may be
  /// null.
  FrameResolver(const DataDictionary& crashLog, const Url& archiveDirectory,
                const Url& temporaryDirectory, SymbolificationRef symbolification,
                Ref<ResolveObserver> observer)
      : architecture_(ApplicationArchitecture(crashLog)),
        modules_(crashLog, archiveDirectory, temporaryDirectory),
        symbolification_(std::move(symbolification)),
        observer_(std::move(observer)) {}

  /// Completes `frame`, or leaves it as it is and says why.
  void Resolve(DataDictionary& frame) {
    const auto* name = frame.FindAs<String>(property::kModuleName);
    const auto* address = frame.FindAs<std::uint64_t>(property::kAddress);
    if (name == nullptr || address == nullptr) return Tell(FrameOutcome::NoModule, frame);
    const Result<ModuleSymbols>* module = modules_.Find(*name);
    if (module == nullptr) return Tell(FrameOutcome::ModuleNotListed, frame);
    if (!*module) {
      ShowUnresolvedFrame(frame);
      return Tell(FrameOutcome::ModuleIncomplete, frame, {}, &module->GetError());
    }
    ResolveInModule(frame, *address, **module);
  }

 private:
  void ResolveInModule(DataDictionary& frame, std::uint64_t address, const ModuleSymbols& module) {
    const auto& [symbolFile, failure] = module.symbols;
    if (!symbolFile) {
      ShowSymbolFileError(symbolFile.GetError());
      return Tell(failure, frame, module.build, &symbolFile.GetError());
    }
    FrameOutcome outcome = FrameOutcome::Resolved;
    const Result<SourcePosition> position =
        LookUp(*symbolFile, address - module.baseAddress, outcome);
    if (!position) {
      ShowUnresolvedFrame(frame);
      return Tell(outcome, frame, module.build, &position.GetError());
    }
    frame.Set(property::kFunctionName, position->function);
    frame.Set(property::kSourceFileName, position->sourceFile);
    frame.Set(property::kSourceLine, position->line);
    ShowResolvedFrame(frame);
    Tell(outcome, frame, module.build);
  }

  void Tell(FrameOutcome outcome, const DataDictionary& frame, const String& build = {},
            const Error* error = nullptr) {
    if (observer_) observer_->FrameDone({outcome, frame, build, error});
  }

  /// `outcome` becomes the kind of failure when there is one.
  Result<SourcePosition> LookUp(const Url& symbolFile, std::uint64_t offset,
                                FrameOutcome& outcome) {
    SourcePosition position;
    outcome = FrameOutcome::UnreadableBundle;
    if (Result<void> loaded = symbolification_->Load(symbolFile, architecture_); !loaded)
      return loaded.GetError();
    outcome = FrameOutcome::UnknownAddress;
    Result<void> resolved =
        symbolification_->Resolve(offset, position.sourceFile, position.line, position.function);
    if (!resolved) return resolved.GetError();
    outcome = FrameOutcome::Resolved;
    return position;
  }

  String architecture_;
  ModuleTable modules_;
  SymbolificationRef symbolification_;
  Ref<ResolveObserver> observer_;
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

Result<void> ResolveFrames(DataDictionary& crashLog, const Url& archiveDirectory,
                           const Url& temporaryDirectory) {
  Result<SymbolificationRef> symbolification = Bind<Symbolification>(*g_tarvo.framework);
  if (!symbolification) return symbolification.GetError();
  const Result<Ref<ResolveObserver>> observer = Bind<ResolveObserver>(*g_tarvo.framework);
  FrameResolver resolver(crashLog, archiveDirectory, temporaryDirectory,
                         *std::move(symbolification), observer.ValueOr(nullptr));
  ForEachDictionary(crashLog, property::kThreads, [&](DataDictionary& thread) {
    ShowThread(thread);
    ForEachDictionary(thread, property::kCallstack,
                      [&](DataDictionary& frame) { resolver.Resolve(frame); });
  });
  return {};
}

}  // namespace tarvo::crashhandler
