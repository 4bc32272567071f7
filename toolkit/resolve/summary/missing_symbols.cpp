#include "toolkit/resolve/summary/missing_symbols.h"

#include <algorithm>
#include <functional>
#include <map>
#include <string_view>
#include <tuple>

#include "tarvo/symbol_archive.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/resolve/summary/tally.h"

namespace tarvo::toolkit {
namespace {

constexpr std::size_t kShownBuilds = 10;
constexpr std::size_t kShownModules = 8;
constexpr std::size_t kShownOthers = 10;
constexpr std::size_t kShownBundles = 6;
constexpr std::size_t kShownNearest = 3;
constexpr std::size_t kMissingNameColumns = 200;
constexpr std::size_t kMissingReasonColumns =
    1000;  // names a file at its start, says why at its end

/// A stranger's text for a line of a few: names have any length.
std::string ShownName(std::string_view text) {
  return Shortened(SafeText(text), kMissingNameColumns);
}

std::string ShownReason(const Lacks::Count& count) {
  return Shortened(SafeText(count.reason), kMissingReasonColumns);
}

std::string Amount(std::uint64_t number, const char* thing) {
  return std::to_string(number) + ' ' + thing + (number == 1 ? "" : "s");
}

std::string AndMore(std::size_t all, std::size_t shown, const char* indent) {
  return all <= shown ? "" : indent + ("and " + std::to_string(all - shown) + " more\n");
}

template <typename Item, typename Counts>
void SortByCounts(std::vector<Item>& items, Counts counts) {
  std::ranges::stable_sort(items, std::ranges::greater{}, [&](const Item& item) {
    const auto& of = counts(item);
    return std::pair(of.reports, of.frames);
  });
}

const Lacks::Count& MissingCountOf(const MissingModule& missing) { return missing.second; }

// --- What there is -------------------------------------------------------------------------------

std::size_t CommonStart(std::string_view a, std::string_view b) {
  return static_cast<std::size_t>(std::ranges::mismatch(a, b).in1 - a.begin());
}

/// The builds whose names are most like `build`, of those that have archives.
std::vector<std::string> Nearest(std::string_view build, const std::vector<std::string>& builds) {
  std::vector<std::string> nearest;
  for (const std::string& other : builds)
    if (2 * CommonStart(build, other) >= build.size()) nearest.push_back(other);
  std::ranges::stable_sort(nearest, std::ranges::greater{},
                           [&](const std::string& other) { return CommonStart(build, other); });
  if (nearest.size() > kShownNearest) nearest.resize(kShownNearest);
  return nearest;
}

std::string NoArchiveText(std::string_view build, ArchiveTree& archives) {
  std::string text;
  for (const std::string& other : Nearest(build, archives.Builds()))
    text += (text.empty() ? ", but of " : ", ") + ShownName(other);
  return "no archive of this build" + text;
}

std::string BundlesText(const Manifest& manifest) {
  std::string text;
  for (std::size_t i = 0; i < std::min(manifest.size(), kShownBundles); ++i) {
    const ManifestEntry& entry = manifest[i];
    text += (i == 0 ? "" : ", ") + ShownName(entry.bundle) + " (" + ShownName(entry.module) +
            (entry.platform.empty() ? "" : ", " + ShownName(entry.platform)) + ')';
  }
  if (manifest.size() > kShownBundles)
    text += " and " + std::to_string(manifest.size() - kShownBundles) + " more";
  return text;
}

std::string FoundText(const MissingBuild& missing, ArchiveCache& archives) {
  const std::string_view build = missing.build.View();
  const std::vector<std::string> files = archives.Archives().FilesOf(build);
  if (files.empty()) return NoArchiveText(build, archives.Archives());
  for (const auto& [lack, count] : missing.modules)
    if (lack.outcome == FrameOutcome::UnreadableArchive)
      return ShownName(files.front()) + ", and: " + ShownReason(count);
  const Manifest& manifest =
      archives.ManifestOf(archives.Directory().Append(build).SystemPath().ToStdString());
  return ShownName(files.front()) + (manifest.empty() ? "" : " with " + BundlesText(manifest));
}

// --- For people ----------------------------------------------------------------------------------

std::string CountText(const Lacks::Count& count) {
  return Amount(count.reports, "report") + ", " + Amount(count.frames, "frame");
}

/// "application.app.dsym (scene.exe)": what is wanted, and for which module where that is not in
/// the name.
std::string WantedText(const MissingModule& missing) {
  const auto& [lack, count] = missing;
  if (lack.build.IsEmpty() || count.bundle.IsEmpty()) return ShownName(lack.module);
  const bool isNamedSo = count.bundle.View().starts_with(lack.module.View());
  return ShownName(count.bundle) + (isNamedSo ? "" : " (" + ShownName(lack.module) + ')');
}

/// Whether what is said of the build says all of the module.
bool IsOfWholeBuild(const Lacks::Lack& lack) {
  return lack.build.IsEmpty() || lack.outcome == FrameOutcome::NoArchive ||
         lack.outcome == FrameOutcome::NoBundle || lack.outcome == FrameOutcome::UnreadableArchive;
}

std::string ModulesText(const std::vector<MissingModule>& modules) {
  std::string text;
  std::string explained;
  for (std::size_t i = 0; i < std::min(modules.size(), kShownModules); ++i) {
    const auto& [lack, count] = modules[i];
    text += "      " + WantedText(modules[i]) + ": " + CountText(count);
    text += IsOfWholeBuild(lack) ? "\n" : "; " + std::string(OutcomeText(lack.outcome)) + '\n';
    const std::string reason = ShownReason(count);
    const bool isExplained = lack.outcome == FrameOutcome::UnreadableBundle ||
                             lack.outcome == FrameOutcome::WrongSymbols;
    if (!isExplained || reason == explained) continue;
    text += "        (" + reason + ")\n";
    explained = reason;
  }
  return text + AndMore(modules.size(), kShownModules, "      ");
}

std::string BuildText(const MissingBuild& missing) {
  std::string text =
      "  " + (missing.build.IsEmpty() ? "no build stated" : ShownName(missing.build));
  if (!missing.platform.IsEmpty()) text += ", " + missing.platform.ToStdString();
  text += ": " + Amount(missing.reports, "report") + ", " + Amount(missing.frames, "frame") + '\n';
  if (missing.build.IsEmpty())
    return text + "    wanted: the build of these modules (--build names that of reports)\n" +
           ModulesText(missing.modules);
  return text + "    wanted: " + ShownName(missing.archive) + " with\n" +
         ModulesText(missing.modules) + "    there is: " + missing.found + '\n';
}

/// One row for a module, whatever builds it is of and why it has no symbols: the reason of most.
std::vector<MissingModule> ByModule(const std::vector<MissingModule>& missing) {
  std::vector<MissingModule> merged;
  std::map<std::pair<String, String>, std::size_t> places;
  for (const auto& [lack, count] : missing) {
    const auto [at, isNew] = places.try_emplace({lack.platform, lack.module}, merged.size());
    if (isNew) {
      merged.emplace_back(lack, count);
    } else {
      merged[at->second].second.reports += count.reports;
      merged[at->second].second.frames += count.frames;
    }
  }
  SortByCounts(merged, MissingCountOf);
  return merged;
}

std::string OtherText(const MissingModule& missing) {
  const auto& [lack, count] = missing;
  std::string text = "  " + ShownName(lack.module);
  if (!lack.platform.IsEmpty()) text += ", " + lack.platform.ToStdString();
  return text + ": " + CountText(count) + ": " + std::string(OutcomeText(lack.outcome)) + '\n';
}

// --- For programs --------------------------------------------------------------------------------

void SetRowText(DataDictionary& entry, const char* key, const String& text) {
  if (!text.IsEmpty()) entry.Set(key, text);
}

DataDictionary RowOf(const MissingModule& missing, const MissingBuild* build) {
  const auto& [lack, count] = missing;
  DataDictionary row;
  row.Set("Reason", String(OutcomeName(lack.outcome)));
  SetRowText(row, "Platform", lack.platform);
  SetRowText(row, "Build", lack.build);
  if (build != nullptr) SetRowText(row, "Archive", String(build->archive));
  SetRowText(row, "Module", lack.module);
  SetRowText(row, "Bundle", count.bundle);
  row.Set("Reports", count.reports);
  row.Set("Frames", count.frames);
  if (count.owner == ModuleOwner::System) row.Set("Owner", "System");
  if (count.owner == ModuleOwner::CrashHandler) row.Set("Owner", "CrashHandler");
  if (build != nullptr) SetRowText(row, "Found", String(build->found));
  SetRowText(row, "Error", count.reason);
  return row;
}

}  // namespace

MissingSymbols FindMissing(const Lacks& lacks, ArchiveCache& archives) {
  MissingSymbols missing;
  std::map<Lacks::Place, MissingBuild> builds;
  for (const auto& [lack, count] : lacks.All()) {
    if (!Lacks::CanBeAskedFor(lack, count)) {
      missing.others.emplace_back(lack, count);
      continue;
    }
    MissingBuild& build = builds[{lack.platform, lack.build}];
    build.frames += count.frames;
    build.modules.emplace_back(lack, count);
  }
  for (auto& [place, build] : builds) {
    std::tie(build.platform, build.build) = place;
    const auto reports = lacks.Reports().find(place);
    if (reports != lacks.Reports().end()) build.reports = reports->second;
    SortByCounts(build.modules, MissingCountOf);
    missing.builds.push_back(std::move(build));
  }
  SortByCounts(missing.builds, [](const MissingBuild& build) -> const auto& { return build; });
  std::ranges::stable_partition(missing.builds,
                                [](const MissingBuild& build) { return !build.build.IsEmpty(); });
  SortByCounts(missing.others, MissingCountOf);
  for (std::size_t i = 0; i < std::min(missing.builds.size(), kMostMissingRows); ++i) {
    MissingBuild& build = missing.builds[i];
    if (build.build.IsEmpty()) continue;
    build.archive = build.build.ToStdString() + std::string(symbol_archive::kSuffix);
    build.found = FoundText(build, archives);
  }
  return missing;
}

std::string MissingText(const MissingSymbols& missing) {
  std::string text;
  if (!missing.builds.empty()) text += "Symbols to ask for, those that most reports want first:\n";
  for (std::size_t i = 0; i < std::min(missing.builds.size(), kShownBuilds); ++i)
    text += BuildText(missing.builds[i]);
  text += AndMore(missing.builds.size(), kShownBuilds, "  ");
  const std::vector<MissingModule> others = ByModule(missing.others);
  if (!others.empty())
    text +=
        "Not to be asked for: of the system, of the crash handler, or not listed in its report:\n";
  for (std::size_t i = 0; i < std::min(others.size(), kShownOthers); ++i)
    text += OtherText(others[i]);
  return text + AndMore(others.size(), kShownOthers, "  ");
}

DataArray MissingDocument(const MissingSymbols& missing) {
  DataArray rows;
  const auto add = [&](const MissingModule& module, const MissingBuild* build) {
    if (rows.Size() < kMostMissingRows) rows.Append(RowOf(module, build));
  };
  for (const MissingBuild& build : missing.builds)
    for (const MissingModule& module : build.modules) add(module, &build);
  for (const MissingModule& module : missing.others) add(module, nullptr);
  return rows;
}

}  // namespace tarvo::toolkit
