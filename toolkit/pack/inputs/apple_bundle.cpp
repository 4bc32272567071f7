#include <algorithm>
#include <filesystem>

#include "toolkit/base/safe_text.h"
#include "toolkit/pack/inputs/find_bundles.h"
#include "toolkit/store/file_description.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

constexpr SourceFile kAppleBundle{"command/pack/apple_bundle"};
constexpr const char* kDebugFiles = "Contents/Resources/DWARF";

std::vector<fs::path> FilesIn(const fs::path& directory) {
  std::vector<fs::path> files;
  std::error_code error;
  for (auto entry = fs::directory_iterator(directory, error);
       !error && entry != fs::directory_iterator(); entry.increment(error))
    if (entry->symlink_status(error).type() == fs::file_type::regular)
      files.push_back(entry->path());
  return files;
}

/// What is known of the bundle by the one debug file in it; of several, and of one that cannot be
/// read, its name alone.
ManifestEntry FactsOf(const fs::path& bundle, const std::vector<fs::path>& files) {
  ManifestEntry facts{.bundle = bundle.filename().native(),
                      .module = bundle.stem().native(),
                      .platform = "macos",
                      .isExecutable = false,
                      .slices = {}};
  const auto description = files.size() == 1
                               ? DescribeFile(files.front().native(), DescriptionDepth::Identity)
                               : Result<FileDescription>(Error::Plain({}, ""));
  if (!description) return facts;
  facts.module = files.front().filename().native();
  facts.platform = description->platform;
  facts.isExecutable = description->kind == FileDescription::Kind::Program;
  facts.slices = description->slices;
  return facts;
}

Result<BundleEntry> Entry(const fs::path& bundle, const fs::directory_entry& found) {
  std::error_code error;
  const fs::file_type type = found.symlink_status(error).type();
  const std::string inside = found.path().lexically_relative(bundle).native();
  if (type != fs::file_type::directory && type != fs::file_type::regular)
    return PackError(kAppleBundle.Here(), bundle.native(),
                     "\"" + SafeText(inside) + "\" in it, no file and no directory",
                     "files and directories only");
  return BundleEntry{inside, found.path().native(),
                     type == fs::file_type::directory ? BundleEntry::Content::Directory
                                                      : BundleEntry::Content::Whole};
}

}  // namespace

Result<Bundle> FindAppleBundle(const std::string& path) {
  fs::path directory = fs::path(path).lexically_normal();
  if (!directory.has_filename()) directory = directory.parent_path();
  const std::vector<fs::path> files = FilesIn(directory / kDebugFiles);
  if (files.empty())
    return PackError(kAppleBundle.Here(), path, "no file in " + std::string(kDebugFiles),
                     "a debug file there");
  Bundle bundle{FactsOf(directory, files), directory.native(), directory.native(), {}};
  bundle.entries.push_back({"", directory.native(), BundleEntry::Content::Directory});
  std::error_code error;
  for (auto entry = fs::recursive_directory_iterator(directory, error);
       !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
    auto found = Entry(directory, *entry);
    if (!found) return found.GetError();
    bundle.entries.push_back(*std::move(found));
  }
  if (error)
    return PackError(kAppleBundle.Here(), path, "what cannot be read (" + error.message() + ")",
                     "readable files");
  std::ranges::sort(bundle.entries, {}, &BundleEntry::inside);
  return bundle;
}

}  // namespace tarvo::toolkit
