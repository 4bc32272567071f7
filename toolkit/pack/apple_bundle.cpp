#include <algorithm>
#include <filesystem>

#include "toolkit/base/safe_text.h"
#include "toolkit/pack/bundle.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

constexpr SourceFile kAppleBundle{"command/pack/apple_bundle"};
constexpr const char* kDebugFiles = "Contents/Resources/DWARF";

bool HoldsFile(const fs::path& directory) {
  std::error_code error;
  for (auto entry = fs::directory_iterator(directory, error);
       !error && entry != fs::directory_iterator(); entry.increment(error))
    if (entry->symlink_status(error).type() == fs::file_type::regular) return true;
  return false;
}

Result<BundleEntry> Entry(const fs::path& bundle, const fs::directory_entry& found) {
  std::error_code error;
  const fs::file_type type = found.symlink_status(error).type();
  const std::string inside = found.path().lexically_relative(bundle).native();
  if (type != fs::file_type::directory && type != fs::file_type::regular)
    return PackError(kAppleBundle.Here(), bundle.native(),
                     "\"" + SafeText(inside) + "\" in it, no file and no directory",
                     "files and directories only");
  return BundleEntry{(bundle.filename() / inside).native(), found.path().native(),
                     type == fs::file_type::directory ? BundleEntry::Content::Directory
                                                      : BundleEntry::Content::Whole};
}

}  // namespace

Result<Bundle> FindAppleBundle(const std::string& path) {
  const fs::path directory = path;
  if (!HoldsFile(directory / kDebugFiles))
    return PackError(kAppleBundle.Here(), path, "no file in " + std::string(kDebugFiles),
                     "a debug file there");
  Bundle bundle{directory.filename().native(), path, path, {}};
  bundle.entries.push_back({bundle.name, path, BundleEntry::Content::Directory});
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
  std::ranges::sort(bundle.entries, {}, &BundleEntry::name);
  return bundle;
}

}  // namespace tarvo::toolkit
