#include <filesystem>

#include "toolkit/base/safe_text.h"
#include "toolkit/pack/debug_information/debug_file_search.h"
#include "toolkit/pack/inputs/find_bundles.h"
#include "toolkit/store/file_description.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

constexpr SourceFile kWindowsBundle{"command/pack/windows_bundle"};

struct FoundPdb {
  std::string path;
  std::string refused;  ///< why there is none
};

/// The PDB of a PE file: of the name that it gives, with its signature and age.
FoundPdb FindPdb(const std::string& path, const FileDescription& description,
                 const DebugPlaces& places) {
  DebugFileSearch search(places);
  FoundPdb result;
  const std::string beside = fs::path(path).parent_path() / description.pdb;
  for (const std::string& candidate : search.Find({beside}, description.pdb, {})) {
    const auto pdb = DescribeFile(candidate, DescriptionDepth::Identity);
    if (pdb && pdb->format == "PDB" && pdb->slices.front().id == description.slices.front().id)
      return {candidate, {}};
    result.refused +=
        ", but \"" + SafeText(candidate) + "\" " + (pdb ? "is of another build" : "cannot be read");
  }
  result.refused += search.Tried();
  return result;
}

}  // namespace

Result<Bundle> FindWindowsBundle(const std::string& path, const DebugPlaces& places) {
  const auto description = DescribeFile(path, DescriptionDepth::Identity);
  if (!description) return description.GetError();
  const std::string name = fs::path(path).filename().native();
  Bundle bundle{.facts = {.bundle = {},
                          .module = name,
                          .platform = description->platform,
                          .isExecutable = description->kind == FileDescription::Kind::Program,
                          .slices = description->slices},
                .given = path,
                .source = path,
                .entries = {}};
  if (description->format == "PDB" || description->hasDebugInformation) {
    bundle.entries.push_back({"", path, BundleEntry::Content::Whole});
    return bundle;
  }
  if (description->pdb.empty())
    return PackError(kWindowsBundle.Here(), path, "no debug information",
                     "some in it or the name of a PDB");
  const FoundPdb pdb = FindPdb(path, *description, places);
  if (pdb.path.empty())
    return PackError(kWindowsBundle.Here(), path, "no debug information" + pdb.refused,
                     "some in it or in its PDB \"" + SafeText(description->pdb) + '"');
  bundle.source = pdb.path;
  bundle.entries.push_back({"", path, BundleEntry::Content::Whole, true});
  bundle.entries.push_back({description->pdb, pdb.path, BundleEntry::Content::Whole});
  return bundle;
}

}  // namespace tarvo::toolkit
