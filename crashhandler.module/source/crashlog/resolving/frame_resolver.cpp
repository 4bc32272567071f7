#include "crashlog/resolving/frame_resolver.h"

#include <memory>
#include <optional>
#include <span>
#include <utility>

#include "connection.h"
#include "crashlog/base/property_names.h"
#include "crashlog/resolving/application_info.h"
#include "crashlog/resolving/module_symbols.h"
#include "crashlog/resolving/resolve_messages.h"
#include "crashlog/resolving/symbol_lookup.h"
#include "tarvo/resolve_observer.h"
#include "tarvo/symbol_file_source.h"

namespace tarvo::crashhandler {
namespace {

/// Sets what is known of a function and of the place in it.
void SetPlace(SourceFrame place, DataDictionary& entry) {
  entry.Set(property::kFunctionName, std::move(place.function));
  entry.Set(property::kSourceFileName, std::move(place.sourceFile));
  entry.Set(property::kSourceLine, place.line);
  if (!place.sourceFileChecksum.IsEmpty())
    entry.Set(property::kSourceFileChecksum, std::move(place.sourceFileChecksum));
}

/// The functions around the innermost one; their texts are taken out of `chain`.
DataArray Callers(AddressChain& chain) {
  DataArray callers;
  callers.Reserve(chain.frames.size() - 1);
  for (SourceFrame& caller : std::span(chain.frames).subspan(1)) {
    DataDictionary entry;
    entry.Reserve(caller.sourceFileChecksum.IsEmpty() ? 3 : 4);
    SetPlace(std::move(caller), entry);
    callers.Append(std::move(entry));
  }
  return callers;
}

/// Resolves the frames of one crash log, one by one.
class FrameResolver {
 public:
  /// `crashLog` is the one whose frames are resolved; it outlives the resolver. `source` and
  /// `observer` may be null.
  FrameResolver(const DataDictionary& crashLog, const Url& archiveDirectory,
                const Url& temporaryDirectory, std::unique_ptr<SymbolLookup> symbols,
                Ref<SymbolFileSource> source, Ref<ResolveObserver> observer)
      : symbols_(std::move(symbols)),
        modules_(crashLog, archiveDirectory, temporaryDirectory, *symbols_, std::move(source)),
        observer_(std::move(observer)) {}

  /// Completes `frame`, or leaves it as it is and says why.
  void Resolve(DataDictionary& frame) {
    const auto* name = frame.FindAs<String>(property::kModuleName);
    const auto* address = frame.FindAs<std::uint64_t>(property::kAddress);
    if (name == nullptr || address == nullptr) return Tell(FrameOutcome::NoModule, frame);
    if (!name_ || *name != *name_) Begin(*name);
    if (module_ == nullptr) return Tell(FrameOutcome::ModuleNotListed, frame);
    if (!*module_) {
      ShowUnresolvedFrame(frame);
      return Tell(FrameOutcome::ModuleIncomplete, frame, {}, &module_->GetError());
    }
    ResolveInModule(frame, *address, **module_);
  }

 private:
  /// Frames of one module follow each other.
  void Begin(const String& name) {
    name_ = name;
    if (observer_) observer_->ModuleBegins(name);
    module_ = modules_.Find(name);
    isLoaded_ = false;
  }

  void ResolveInModule(DataDictionary& frame, std::uint64_t address, const ModuleSymbols& module) {
    const Result<SymbolFileRequest>& symbols = module.symbols;
    if (!symbols) {
      ShowSymbolFileError(symbols.GetError());
      return Tell(module.outcome, frame, module.build, &symbols.GetError());
    }
    FrameOutcome outcome = FrameOutcome::Resolved;
    Result<AddressChain> chain = LookUp(*symbols, address - module.baseAddress, outcome);
    if (!chain) {
      ShowUnresolvedFrame(frame);
      return Tell(outcome, frame, module.build, &chain.GetError());
    }
    frame.Reserve(frame.Size() + property::kMostAdded);
    SetPlace(std::move(chain->frames.front()), frame);
    if (chain->symbolOffset) frame.Set(property::kSymbolOffset, *chain->symbolOffset);
    if (chain->frames.size() > 1) frame.Set(property::kInlinedInto, Callers(*chain));
    ShowResolvedFrame(frame);
    Tell(outcome, frame, module.build);
  }

  void Tell(FrameOutcome outcome, const DataDictionary& frame, const String& build = {},
            const Error* error = nullptr) {
    if (observer_) observer_->FrameDone({outcome, frame, build, error});
  }

  /// `outcome` becomes the kind of failure when there is one.
  Result<AddressChain> LookUp(const SymbolFileRequest& symbols, std::uint64_t offset,
                              FrameOutcome& outcome) {
    outcome = FrameOutcome::UnreadableBundle;
    if (!isLoaded_)
      if (Result<void> loaded = symbols_->Load(symbols); !loaded) return loaded.GetError();
    isLoaded_ = symbols_->StaysLoaded();
    outcome = FrameOutcome::UnknownAddress;
    Result<AddressChain> chain = symbols_->Resolve(offset);
    if (chain) outcome = FrameOutcome::Resolved;
    return chain;
  }

  std::unique_ptr<SymbolLookup> symbols_;
  ModuleTable modules_;
  Ref<ResolveObserver> observer_;
  std::optional<String> name_;                     ///< of the module that the last frame was in
  const Result<ModuleSymbols>* module_ = nullptr;  ///< the same; null: it is not listed
  bool isLoaded_ = false;                          ///< whether its symbols need no Load
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
  Result<std::unique_ptr<SymbolLookup>> symbols = BindSymbolLookup(crashLog);
  if (!symbols) return symbols.GetError();
  const Result<Ref<ResolveObserver>> observer = Bind<ResolveObserver>(*g_tarvo.framework);
  const Result<Ref<SymbolFileSource>> source = Bind<SymbolFileSource>(*g_tarvo.framework);
  FrameResolver resolver(crashLog, archiveDirectory, temporaryDirectory, *std::move(symbols),
                         source.ValueOr(nullptr), observer.ValueOr(nullptr));
  ForEachDictionary(crashLog, property::kThreads, [&](DataDictionary& thread) {
    ShowThread(thread);
    ForEachDictionary(thread, property::kCallstack,
                      [&](DataDictionary& frame) { resolver.Resolve(frame); });
  });
  return {};
}

}  // namespace tarvo::crashhandler
