#include "crashlog/resolving/module_symbols.h"

#include <utility>

#include "crashlog/base/property_names.h"
#include "crashlog/base/source.h"
#include "crashlog/resolving/application_info.h"
#include "crashlog/resolving/symbol_choice.h"

namespace tarvo::crashhandler {
namespace {

Result<bool> IsExecutable(const DataDictionary& module) {
  if (module.Find(property::kIsExecutable) == nullptr) return false;
  return module.Get<bool>(property::kIsExecutable);
}

Result<String> Build(const DataDictionary& module) {
  Result<String> build = module.Get<String>(property::kBuild);
  if (build && build->IsEmpty())
    return Error::IllegalArgument(kSource.Here(), "The module's build is empty.");
  return build;
}

}  // namespace

ModuleTable::ModuleTable(const DataDictionary& crashLog, const Url& archiveDirectory,
                         const Url& temporaryDirectory, SymbolLookup& lookup,
                         Ref<SymbolFileSource> source)
    : crashLog_(crashLog),
      cache_(archiveDirectory, temporaryDirectory),
      lookup_(lookup),
      source_(std::move(source)) {
  const auto* modules = crashLog.FindAs<DataArray>(property::kLoadedModules);
  if (modules == nullptr) return;
  modules_ = *modules;
  symbols_.resize(modules_.Size());
  for (std::size_t i = 0; i < modules_.Size(); ++i) {
    const auto* module = modules_[i].As<DataDictionary>();
    const auto* name = module == nullptr ? nullptr : module->FindAs<String>(property::kModuleName);
    if (name != nullptr && positions_.Find(*name) == nullptr)
      positions_.Set(*name, std::uint64_t{i});
  }
}

const Result<ModuleSymbols>* ModuleTable::Find(const String& name) {
  const auto* position = positions_.FindAs<std::uint64_t>(name);
  if (position == nullptr) return nullptr;
  std::optional<Result<ModuleSymbols>>& symbols = symbols_[*position];
  if (!symbols) symbols = Prepare(*modules_[*position].As<DataDictionary>());
  return &*symbols;
}

Result<ModuleSymbols> ModuleTable::Prepare(const DataDictionary& module) {
  Result<ModuleSymbols> archived = FromArchive(module);
  if (source_ == nullptr) return archived;
  return ChooseSymbols({crashLog_, module}, std::move(archived), *source_, lookup_);
}

Result<ModuleSymbols> ModuleTable::FromArchive(const DataDictionary& module) {
  const Result<std::uint64_t> base = module.Get<std::uint64_t>(property::kBaseAddress);
  if (!base) return base.GetError();
  const Result<String> build = Build(module);
  if (!build) return build.GetError();
  const Result<bool> isExecutable = IsExecutable(module);
  if (!isExecutable) return isExecutable.GetError();
  String name = *module.FindAs<String>(property::kModuleName);
  std::uint64_t baseAddress = *base;
  if (*isExecutable) ApplicationBundleName(crashLog_, name, baseAddress);
  const BundleSearch search = cache_.GetSymbolFile(name, *build);
  if (!search.bundle)
    return ModuleSymbols{baseAddress, *build, search.bundle.GetError(), search.outcome};
  return ModuleSymbols{baseAddress, *build, SymbolFileRequest{.file = *search.bundle}};
}

}  // namespace tarvo::crashhandler
