#include "toolkit/pack/archive/archive_manifest.h"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <set>

#include "tarvo/symbol_archive.h"
#include "toolkit/pack/archive/listing.h"
#include "toolkit/store/file_description.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

/// The bundle that an archive's entry is of: the path up to the first name with a bundle's suffix.
std::string BundleOf(const std::string& name) {
  for (std::size_t end = name.find('/'); end != std::string::npos; end = name.find('/', end + 1)) {
    const fs::path suffix = fs::path(name.substr(0, end)).extension();
    if (suffix == symbol_archive::kBundleSuffix || suffix == symbol_archive::kAppleBundleSuffix)
      return name.substr(0, end);
  }
  return name;
}

/// What a bundle's largest part says of itself, for archives that were made without a manifest.
class OldBundles {
 public:
  OldBundles(const ArchiveReader& archive, const std::string& scratch)
      : archive_(archive), scratch_(scratch) {}

  Manifest Read() {
    const auto& names = archive_.Names();
    Manifest manifest;
    const auto own = std::ranges::find(names, symbol_archive::kManifestName);
    if (own != names.end()) manifest = Told(static_cast<std::size_t>(own - names.begin()));
    for (std::size_t i = 0; i < names.size(); ++i)
      if (!names[i].ends_with('/') && names[i] != symbol_archive::kManifestName) Add(i, manifest);
    std::erase_if(manifest,
                  [&](const ManifestEntry& entry) { return !there_.contains(entry.bundle); });
    return manifest;
  }

 private:
  Manifest Told(std::size_t index) {
    const std::string file = Extracted(index, kMaximumManifestBytes);
    const fs::path directory = fs::path(file).parent_path();
    Manifest manifest = file.empty() ? Manifest() : ManifestIn(directory);
    Remove();
    return manifest;
  }

  void Add(std::size_t index, Manifest& manifest) {
    const std::string& name = archive_.Names()[index];
    const std::string bundle = BundleOf(name);
    there_.insert(bundle);
    const auto known = std::ranges::find(manifest, bundle, &ManifestEntry::bundle);
    if (known != manifest.end() && !known->platform.empty()) return;
    if (known == manifest.end())
      manifest.push_back({bundle, fs::path(bundle).filename().stem(), {}, false, {}});
    ManifestEntry& entry = *std::ranges::find(manifest, bundle, &ManifestEntry::bundle);
    const std::string file = Extracted(index, std::numeric_limits<std::uint64_t>::max());
    const auto description = DescribeFile(file, DescriptionDepth::Identity);
    Remove();
    if (!description) return;
    entry.platform = description->platform;
    entry.slices = description->slices;
    entry.isExecutable = description->kind == FileDescription::Kind::Program;
    if (bundle != name) entry.module = fs::path(name).filename().native();
  }

  std::string Extracted(std::size_t index, std::uint64_t limit) const {
    const std::string file = scratch_ + '/' + std::string(symbol_archive::kManifestName);
    return archive_.Extract(index, file, limit) ? file : std::string();
  }
  void Remove() const {
    std::error_code ignored;
    fs::remove(scratch_ + '/' + std::string(symbol_archive::kManifestName), ignored);
  }

  const ArchiveReader& archive_;
  const std::string& scratch_;
  std::set<std::string> there_;
};

}  // namespace

Result<Manifest> ReadArchiveManifest(const std::string& path) {
  const auto archive = ArchiveReader::Open(path);
  if (!archive) return archive.GetError();
  Manifest manifest;
  if (*archive == nullptr) return manifest;
  const auto& names = (*archive)->Names();
  const auto own = std::ranges::find(names, symbol_archive::kManifestName);
  if (own != names.end()) {
    Result<Manifest> told = ReadManifest(
        (*archive)->Read(static_cast<std::size_t>(own - names.begin()), kMaximumManifestBytes));
    if (told) manifest = *std::move(told);
  }
  std::set<std::string> bundles;
  for (const std::string& name : names)
    if (!name.ends_with('/') && name != symbol_archive::kManifestName)
      bundles.insert(BundleOf(name));
  std::erase_if(manifest,
                [&](const ManifestEntry& entry) { return !bundles.contains(entry.bundle); });
  for (const std::string& bundle : bundles)
    if (std::ranges::find(manifest, bundle, &ManifestEntry::bundle) == manifest.end())
      manifest.push_back({bundle, fs::path(bundle).filename().stem(), {}, false, {}});
  return manifest;
}

Manifest ManifestOf(const ArchiveReader& archive, const std::string& scratch) {
  return OldBundles(archive, scratch).Read();
}

}  // namespace tarvo::toolkit
