#include "toolkit/debug_files/archived_files.h"

#include <algorithm>
#include <filesystem>

#include "tarvo/crash_report.h"
#include "tarvo/format.h"
#include "tarvo/symbol_archive.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/store/bundle_choice.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;
namespace property = crash_report::property;

constexpr SourceFile kArchivedFiles{"command/resolve/archived_files"};

std::string BuildOf(const DataDictionary& module) {
  const auto* build = module.FindAs<String>(property::kBuild);
  return build == nullptr ? std::string() : build->ToStdString();
}

/// That of the executable, which reports list first.
std::string ApplicationBuild(const DataDictionary& crashLog) {
  const auto* modules = crashLog.FindAs<DataArray>(property::kLoadedModules);
  for (std::size_t i = 0; modules != nullptr && i < modules->Size(); ++i) {
    const auto* module = (*modules)[i].As<DataDictionary>();
    const auto* isExecutable =
        module == nullptr ? nullptr : module->FindAs<bool>(property::kIsExecutable);
    if (isExecutable != nullptr && *isExecutable) return BuildOf(*module);
  }
  return {};
}

WantedModule Wanted(const ModuleIdentity& module) {
  return {.name = module.name,
          .path = module.path,
          .platform = module.platform,
          .id = module.id,
          .isExecutable = module.isExecutable};
}

bool IsPlainFileName(const std::string& name) {
  return !name.empty() && name.find_first_of(std::string("/\0", 2)) == std::string::npos;
}

std::vector<std::string> BundlesIn(const UnpackedArchive& archive, const ModuleIdentity& module) {
  std::vector<std::string> bundles;
  for (const ManifestEntry* entry : EntriesFor(Wanted(module), archive.manifest))
    bundles.push_back(archive.directory + '/' + entry->bundle);
  if (!archive.manifest.empty()) return bundles;
  for (const std::string& name : BundleNamesFor(module))
    for (const auto suffix : {symbol_archive::kBundleSuffix, symbol_archive::kAppleBundleSuffix})
      if (IsPlainFileName(name))
        bundles.push_back(archive.directory + '/' + name + std::string(suffix));
  return bundles;
}

/// A manifest is a stranger's: a bundle that leads out of the archive is none.
bool IsInside(const std::string& bundle) {
  return std::ranges::none_of(fs::path(bundle), [](const fs::path& part) { return part == ".."; });
}

}  // namespace

std::vector<std::string> BuildsFor(const ModuleQuery& query, const std::string& given) {
  std::vector<std::string> builds;
  const auto add = [&](std::string build) {
    if (!build.empty() && std::ranges::find(builds, build) == builds.end())
      builds.push_back(std::move(build));
  };
  add(BuildOf(query.module));
  add(ApplicationBuild(query.crashLog));
  if (builds.empty()) add(given);
  return builds;
}

std::vector<std::string> BundleNamesFor(const ModuleIdentity& module) {
  std::vector<std::string> names = {module.name};
  if (module.isExecutable)
    names.emplace_back(module.name == symbol_archive::kKernelName
                           ? symbol_archive::kKernelApplicationName
                           : symbol_archive::kApplicationName);
  return names;
}

std::vector<SymbolFileRequest> FindArchived(Framework& framework, ArchiveCache& archives,
                                            const ModuleIdentity& module,
                                            const std::vector<std::string>& builds) {
  std::vector<SymbolFileRequest> found;
  std::error_code missing;
  for (const std::string& build : builds) {
    for (const UnpackedArchive& archive : archives.Unpack(framework, build)) {
      for (const std::string& bundle : BundlesIn(archive, module)) {
        if (!IsInside(bundle) || !fs::exists(bundle, missing)) continue;
        found.push_back({.file = Url::FromSystemPath(bundle),
                         .id = String(module.id),
                         .platform = String(module.platform)});
      }
    }
  }
  return found;
}

namespace {

/// What the manifest beside a bundle says of it, and of the module that it was looked up for.
struct Told {
  const ManifestEntry* own = nullptr;  ///< null where it says nothing
  std::vector<const ManifestEntry*> serving;
};

Told ToldOf(ArchiveCache& archives, const ModuleIdentity& module,
            const SymbolFileRequest& request) {
  const std::string bundle = request.file.SystemPath().ToStdString();
  const fs::path cache = archives.Directory().SystemPath().ToStdString();
  const fs::path inside = fs::path(bundle).lexically_relative(cache);
  if (inside.empty() || *inside.begin() == "..") return {};
  const fs::path directory = cache / *inside.begin();
  const Manifest& manifest = archives.ManifestOf(directory);
  const auto own = std::ranges::find_if(manifest, [&](const ManifestEntry& entry) {
    return (directory / entry.bundle).native() == bundle;
  });
  if (own == manifest.end()) return {};
  return {&*own, EntriesFor(Wanted(module), manifest)};
}

bool Serves(const Told& told) {
  return told.own == nullptr || std::ranges::find(told.serving, told.own) != told.serving.end();
}

}  // namespace

Result<void> CheckArchived(ArchiveCache& archives, const ModuleIdentity& module,
                           const SymbolFileRequest& request) {
  const Told told = ToldOf(archives, module, request);
  if (Serves(told)) return {};
  const ManifestEntry& own = *told.own;
  const std::string& id = own.slices.empty() ? std::string() : own.slices.front().id;
  return Error::IllegalArgument(
      kArchivedFiles.Here(),
      Format("The bundle @ is of another module or build: found @ for @, id @, expected @ for @, "
             "id @.",
             SafeText(own.bundle), SafeText(own.module), SafeText(own.platform),
             id.empty() ? "none" : SafeText(id), SafeText(module.name),
             module.platform.empty() ? "any system" : SafeText(module.platform),
             module.id.empty() ? "not known" : SafeText(module.id)));
}

bool IsBesideTheRightOne(ArchiveCache& archives, const ModuleIdentity& module,
                         const SymbolFileRequest& request) {
  const Told told = ToldOf(archives, module, request);
  return !Serves(told) && !told.serving.empty();
}

}  // namespace tarvo::toolkit
