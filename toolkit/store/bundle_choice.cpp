#include "toolkit/store/bundle_choice.h"

#include <algorithm>
#include <string_view>

#include "tarvo/crash_report.h"
#include "tarvo/string.h"

namespace tarvo::toolkit {
namespace {

std::string_view FileName(std::string_view path) {
  return path.substr(path.find_last_of("/\\") + 1);
}

std::string_view Stem(std::string_view name) { return name.substr(0, name.rfind('.')); }

bool IsNamed(std::string_view name, const ManifestEntry& entry) {
  if (name.empty()) return false;
  if (entry.platform != "windows") return name == entry.module;
  const bool isPdb =
      String(entry.module).EqualsIgnoringCase(std::string(Stem(entry.module)) + ".pdb");
  return isPdb ? String(Stem(name)).EqualsIgnoringCase(Stem(entry.module))
               : String(name).EqualsIgnoringCase(entry.module);
}

bool HasId(const ManifestEntry& entry, const std::string& id) {
  return std::ranges::find(entry.slices, id, &SymbolSlice::id) != entry.slices.end();
}

bool StatesIds(const ManifestEntry& entry) {
  return std::ranges::any_of(entry.slices,
                             [](const SymbolSlice& slice) { return !slice.id.empty(); });
}

}  // namespace

std::vector<const ManifestEntry*> EntriesFor(const WantedModule& module, const Manifest& manifest) {
  const bool isNameless = module.name.empty() || module.name == crash_report::kUnknown;
  std::vector<const ManifestEntry*> byId;
  std::vector<const ManifestEntry*> byName;
  std::vector<const ManifestEntry*> programs;
  for (const ManifestEntry& entry : manifest) {
    const bool isOfPlatform =
        module.platform.empty() || entry.platform.empty() || module.platform == entry.platform;
    if (!module.id.empty() && HasId(entry, module.id)) byId.push_back(&entry);
    if (!isOfPlatform || (!module.id.empty() && StatesIds(entry))) continue;
    if (IsNamed(module.name, entry) || IsNamed(FileName(module.path), entry))
      byName.push_back(&entry);
    if (module.isExecutable && isNameless && entry.isExecutable) programs.push_back(&entry);
  }
  if (!byId.empty()) return byId;
  if (!byName.empty()) return byName;
  return programs.size() == 1 ? programs : std::vector<const ManifestEntry*>();
}

}  // namespace tarvo::toolkit
