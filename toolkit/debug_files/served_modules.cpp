#include "toolkit/debug_files/served_modules.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include "tarvo/crash_report.h"
#include "tarvo/symbol_archive.h"
#include "toolkit/debug_files/archived_files.h"
#include "toolkit/debug_files/module_identity.h"
#include "toolkit/store/bundle_choice.h"

namespace tarvo::toolkit {
namespace {

namespace property = crash_report::property;

/// The elements of an array that are dictionaries.
template <typename Take>
void ForEachDictionary(const DataDictionary& parent, std::string_view key, Take take) {
  const auto* array = parent.FindAs<DataArray>(key);
  for (std::size_t i = 0; array != nullptr && i < array->Size(); ++i)
    if (const auto* dictionary = (*array)[i].As<DataDictionary>()) take(*dictionary);
}

std::string TextOf(const DataDictionary& dictionary, std::string_view key) {
  const auto* text = dictionary.FindAs<String>(key);
  return text == nullptr ? std::string() : text->ToStdString();
}

std::set<std::string> ModulesOfFrames(const DataDictionary& crashLog) {
  std::set<std::string> names;
  ForEachDictionary(crashLog, property::kThreads, [&](const DataDictionary& thread) {
    ForEachDictionary(thread, property::kCallstack, [&](const DataDictionary& frame) {
      names.insert(TextOf(frame, property::kModuleName));
    });
  });
  return names;
}

/// The build that an archive is of by its name; empty where it says none.
std::string BuildOf(const OfferedArchive& archive) {
  const std::string name = std::filesystem::path(archive.file).filename();
  return name.ends_with(symbol_archive::kSuffix)
             ? name.substr(0, name.size() - symbol_archive::kSuffix.size())
             : std::string();
}

/// As the look-up finds them in an archive without a manifest: by name, in three places.
std::vector<const ManifestEntry*> EntriesByName(const ModuleIdentity& module,
                                                const Manifest& bundles) {
  std::vector<const ManifestEntry*> found;
  const auto isFor = [&](const ManifestEntry& entry, const std::string& name) {
    const String bundle(entry.bundle);
    const auto isAt = [&](const char* folder) {
      return bundle.EqualsIgnoringCase(folder + name + std::string(symbol_archive::kBundleSuffix));
    };
    const bool isOther =
        (!module.platform.empty() && module.platform != entry.platform) ||
        (!module.id.empty() && !entry.slices.empty() && entry.slices.front().id != module.id);
    return !isOther && (isAt("") || isAt("Release/") || isAt("Pebble/"));
  };
  for (const std::string& name : BundleNamesFor(module))
    for (const ManifestEntry& entry : bundles)
      if (isFor(entry, name)) found.push_back(&entry);
  return found;
}

std::vector<const ManifestEntry*> EntriesIn(const OfferedArchive& archive,
                                            const ModuleIdentity& module) {
  if (!archive.isTold) return EntriesByName(module, archive.bundles);
  return EntriesFor({.name = module.name,
                     .path = module.path,
                     .platform = module.platform,
                     .id = module.id,
                     .isExecutable = module.isExecutable},
                    archive.bundles);
}

ServedModule Serve(const DataDictionary& crashLog, const DataDictionary& module,
                   const std::vector<OfferedArchive>& archives) {
  const ModuleIdentity identity = Identify({crashLog, module});
  const std::vector<std::string> builds = BuildsFor({crashLog, module}, {});
  ServedModule served{.module = identity.name, .build = TextOf(module, property::kBuild)};
  served.reason =
      builds.empty() ? "no build in the report" : "no archive of build " + builds.front();
  for (const OfferedArchive& archive : archives) {
    const std::string build = BuildOf(archive);
    if (!build.empty() && !builds.empty() && std::ranges::find(builds, build) == builds.end())
      continue;
    served.isExpected |= !build.empty() && build == served.build;
    const auto entries = EntriesIn(archive, identity);
    served.reason =
        identity.id.empty() ? "no bundle of it" : "no bundle with its id " + identity.id;
    if (entries.empty()) continue;
    served.bundle = entries.front()->bundle;
    served.archive = archive.file;
    served.reason.clear();
    return served;
  }
  return served;
}

}  // namespace

std::vector<ServedModule> ModulesServed(const DataDictionary& crashLog,
                                        const std::vector<OfferedArchive>& archives) {
  const std::set<std::string> used = ModulesOfFrames(crashLog);
  std::vector<ServedModule> served;
  ForEachDictionary(crashLog, property::kLoadedModules, [&](const DataDictionary& module) {
    if (used.contains(TextOf(module, property::kModuleName)))
      served.push_back(Serve(crashLog, module, archives));
  });
  return served;
}

}  // namespace tarvo::toolkit
