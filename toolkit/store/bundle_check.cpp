#include "toolkit/store/bundle_check.h"

#include <algorithm>
#include <filesystem>

#include "tarvo/symbol_archive.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

bool IsBundleName(const fs::path& name) {
  return name.extension() == symbol_archive::kBundleSuffix ||
         name.extension() == symbol_archive::kAppleBundleSuffix;
}

/// The bundles below `directory`, at any depth, without what is in them.
std::vector<fs::path> BundlesBelow(const fs::path& directory) {
  std::vector<fs::path> bundles;
  std::error_code error;
  for (auto entry = fs::recursive_directory_iterator(directory, error);
       !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
    if (!IsBundleName(entry->path())) continue;
    bundles.push_back(entry->path());
    entry.disable_recursion_pending();
  }
  std::ranges::sort(bundles);
  return bundles;
}

/// The file that a reader begins with: the bundle itself, the one named like it, or the first that
/// can be described and is no part of others.
std::vector<fs::path> Candidates(const fs::path& bundle) {
  std::error_code error;
  if (!fs::is_directory(bundle, error)) return {bundle};
  const fs::path dwarf = bundle / "Contents/Resources/DWARF";
  const fs::path folder = fs::is_directory(dwarf, error) ? dwarf : bundle;
  std::vector<fs::path> files;
  for (auto entry = fs::directory_iterator(folder, error);
       !error && entry != fs::directory_iterator(); entry.increment(error))
    if (entry->is_regular_file(error)) files.push_back(entry->path());
  const auto rank = [&](const fs::path& file) {
    const bool isPart =
        file.extension() == ".dwo" || file.extension() == ".dwp" || file.extension() == ".pdb";
    return std::tuple(file.filename() != bundle.stem(), isPart, file);
  };
  std::ranges::sort(files, {}, rank);
  return files;
}

void AddProblems(CheckedBundle& bundle) {
  const FileDescription& file = *bundle.description;
  if (!file.hasDebugInformation && file.pdb.empty())
    bundle.problems.emplace_back("no debug information");
  if (!file.hasDebugInformation && !file.pdb.empty() && file.pdbFound.empty())
    bundle.problems.push_back("missing: " + file.pdb);
  if (file.functions == 0 || file.lines == 0)
    bundle.problems.emplace_back("no functions or no lines");
  if (file.shared && file.shared->found.empty())
    bundle.problems.push_back("missing: " + file.shared->name);
  for (const CompanionFile& part : file.split)
    if (part.found.empty()) bundle.problems.push_back("missing: " + part.name);
  if (!bundle.told) return;
  if (bundle.told->platform != file.platform)
    bundle.problems.push_back("for " + file.platform + ", and the manifest says " +
                              bundle.told->platform);
  if (!bundle.told->slices.empty() && bundle.told->slices != file.slices)
    bundle.problems.emplace_back("of another build or processor than the manifest says");
}

CheckedBundle Check(const fs::path& path, const std::string& name, const Manifest& manifest) {
  CheckedBundle bundle{.name = name, .description = {}, .told = {}, .problems = {}};
  const auto told = std::ranges::find(manifest, name, &ManifestEntry::bundle);
  if (told != manifest.end()) bundle.told = *told;
  for (const fs::path& file : Candidates(path)) {
    const auto description = DescribeFile(file.native(), DescriptionDepth::Contents);
    if (!description) continue;
    bundle.description = *description;
    AddProblems(bundle);
    return bundle;
  }
  bundle.problems.emplace_back("no debug file that can be read");
  return bundle;
}

/// What a bundle that can be read is for.
ManifestEntry EntryOf(const CheckedBundle& bundle) {
  if (bundle.told) return *bundle.told;
  return {.bundle = bundle.name,
          .module = fs::path(bundle.name).stem().native(),
          .platform = bundle.description->platform,
          .isExecutable = bundle.description->kind == FileDescription::Kind::Program,
          .slices = bundle.description->slices};
}

}  // namespace

Result<CheckedArchive> CheckArchive(Framework& framework, const std::string& file,
                                    const std::string& scratch) {
  Result<Ref<ReadArchive>> reader = CreateObject<ReadArchive>(framework, ReadArchive::kZipClassId);
  if (!reader) return reader.GetError();
  if (auto opened = (*reader)->Open(Url::FromSystemPath(file)); !opened) return opened.GetError();
  if (auto extracted = (*reader)->Extract(Url::FromSystemPath(scratch)); !extracted)
    return extracted.GetError();
  const Manifest told = ManifestIn(scratch);
  CheckedArchive archive{.file = file, .bundles = {}, .manifest = {}, .isTold = !told.empty()};
  for (const fs::path& path : BundlesBelow(scratch)) {
    CheckedBundle bundle = Check(path, path.lexically_relative(scratch).native(), told);
    if (bundle.description) archive.manifest.push_back(EntryOf(bundle));
    archive.bundles.push_back(std::move(bundle));
  }
  for (const ManifestEntry& entry : told)
    if (std::ranges::find(archive.bundles, entry.bundle, &CheckedBundle::name) ==
        archive.bundles.end())
      archive.bundles.push_back({.name = entry.bundle,
                                 .description = {},
                                 .told = entry,
                                 .problems = {"told by the manifest, and not there"}});
  return archive;
}

}  // namespace tarvo::toolkit
