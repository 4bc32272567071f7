#include "toolkit/pack/pack.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "tarvo/format.h"
#include "tarvo/symbol_archive.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/pack/archive/archive_manifest.h"
#include "toolkit/pack/archive/archive_plan.h"
#include "toolkit/pack/archive/archive_writer.h"
#include "toolkit/pack/archive/entry_content.h"
#include "toolkit/pack/debug_information/elf_file.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

constexpr SourceFile kPack{"command/pack/pack"};
constexpr const char* kHierarchyRoot = "symbols";

Result<EntryContent> ContentOf(const BundleEntry& entry) {
  return entry.content == BundleEntry::Content::DebugSections ? DebugSectionsOf(entry.path)
                                                              : WholeFile(entry.path);
}

/// Where an entry of a bundle stands in the archive.
std::string NameOf(const Bundle& bundle, const BundleEntry& entry) {
  std::string inside = entry.inside;
  if (entry.isNamedLikeBundle)
    inside = fs::path(bundle.facts.bundle).filename().stem().native() + inside;
  return inside.empty() ? bundle.facts.bundle : bundle.facts.bundle + '/' + inside;
}

/// What a person wants to know of a bundle that another one takes the place of.
std::string ReplacedText(const ManifestEntry& old, const ManifestEntry& now) {
  if (old.bundle.empty()) return {};
  if (old.slices == now.slices && !old.slices.empty() && !old.slices.front().id.empty())
    return "the same build's";
  const bool hasId = !old.slices.empty() && !old.slices.front().id.empty();
  return hasId ? "another build's, id " + old.slices.front().id : "one without an id";
}

Result<std::uint64_t> AddBundle(ArchiveWriter& writer, const Bundle& bundle) {
  std::uint64_t bytes = 0;
  const bool isPlain = bundle.entries.size() == 1 && bundle.entries.front().inside.empty() &&
                       !bundle.entries.front().isNamedLikeBundle;
  const bool hasDirectory =
      bundle.entries.front().content == BundleEntry::Content::Directory || isPlain;
  if (!hasDirectory)
    if (auto added = writer.AddDirectory(bundle.facts.bundle); !added) return added.GetError();
  for (const BundleEntry& entry : bundle.entries) {
    const std::string name = NameOf(bundle, entry);
    if (entry.content == BundleEntry::Content::Directory) {
      if (auto added = writer.AddDirectory(name); !added) return added.GetError();
      continue;
    }
    auto content = ContentOf(entry);
    if (!content) return content.GetError();
    bytes += content->Size();
    if (auto added = writer.AddFile(name, *std::move(content)); !added) return added.GetError();
  }
  return bytes;
}

std::string StemOf(const std::string& bundle) { return fs::path(bundle).filename().stem(); }

/// The name of an entry, `inside` its bundle, in the new archive: the file that is named like the
/// bundle stays so.
std::string NameOf(const KeptBundle& kept, const std::string& inside) {
  const std::string first = '/' + StemOf(kept.was);
  const bool isNamedLike = inside == first || inside == first + ".dwp";
  return kept.bundle +
         (isNamedLike ? '/' + StemOf(kept.bundle) + inside.substr(first.size()) : inside);
}

Result<void> CopyKept(ArchiveWriter& writer, const ArchiveReader& old, const KeptBundle& kept) {
  const auto& names = old.Names();
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (!names[i].starts_with(kept.was)) continue;
    const std::string inside = names[i].substr(kept.was.size());
    if (!inside.empty() && inside.front() != '/') continue;
    if (auto copied = writer.Copy(old, i, NameOf(kept, inside)); !copied) return copied;
  }
  return {};
}

/// Writes all bundles in the order of the manifest, so that the same bundles give the same archive
/// whichever came first.
Result<void> AddBundles(ArchiveWriter& writer, const ArchivePlan& plan,
                        const std::vector<Bundle>& bundles, const ArchiveReader* old,
                        PackedArchive& packed) {
  EntryContent manifest;
  manifest.Append(WriteManifest(plan.manifest));
  if (auto added = writer.AddFile(std::string(symbol_archive::kManifestName), std::move(manifest));
      !added)
    return added;
  for (const ManifestEntry& entry : plan.manifest) {
    const auto bundle =
        std::ranges::find(bundles, entry.bundle, [](const Bundle& b) { return b.facts.bundle; });
    if (bundle == bundles.end()) {
      const auto kept = std::ranges::find(plan.kept, entry.bundle, &KeptBundle::bundle);
      if (auto copied = CopyKept(writer, *old, *kept); !copied) return copied;
      continue;
    }
    const auto bytes = AddBundle(writer, *bundle);
    if (!bytes) return bytes.GetError();
    const auto& replaced = plan.replaced[static_cast<std::size_t>(bundle - bundles.begin())];
    packed.bundles.push_back({entry.bundle, bundle->source, *bytes, ReplacedText(replaced, entry)});
  }
  return {};
}

/// The programs of which one has the name for want of a better reason, that one first.
std::vector<ManifestEntry> UntoldApplicants(const Manifest& manifest) {
  auto applicants = ApplicantsIn(manifest);
  if (applicants.size() < 2 || std::ranges::any_of(applicants, &ManifestEntry::isApplication))
    return {};
  std::ranges::stable_partition(applicants, [](const ManifestEntry& entry) {
    return StemOf(entry.bundle) == symbol_archive::kApplicationName;
  });
  return applicants;
}

}  // namespace

std::string ArchivePath(const std::string& archives, const std::string& build,
                        ArchiveLayout layout) {
  fs::path directory = archives;
  if (layout == ArchiveLayout::Hierarchy) {
    const String key = symbol_archive::BuildSearchKey(build);
    directory /= kHierarchyRoot;
    directory /= key.IsEmpty() ? build : key.ToStdString();
    directory /= symbol_archive::kBuildsDirectory;
  }
  return (directory / (build + std::string(symbol_archive::kSuffix))).native();
}

Result<PackedArchive> WriteArchive(const std::string& path, std::vector<Bundle> bundles,
                                   const WriteOptions& options) {
  const std::string directory = fs::path(path).parent_path().native();
  std::error_code error;
  if (fs::create_directories(directory, error); error)
    return Error::File(
        kPack.Here(),
        Format("Could not make the directory \"@\": @", SafeText(directory), error.message()),
        Url::FromSystemPath(directory));
  const auto lock = ArchiveLock::Take(path);
  if (!lock) return lock.GetError();
  auto old = options.replaces ? Result<std::unique_ptr<ArchiveReader>>(nullptr)
                              : ArchiveReader::Open(path);
  if (!old) return old.GetError();
  auto writer = ArchiveWriter::Create(path);
  if (!writer) return writer.GetError();
  const Manifest before = *old == nullptr ? Manifest() : ManifestOf(**old, (*writer)->Scratch());
  const auto plan = PlanArchive(before, bundles, options.application);
  if (!plan) return plan.GetError();
  PackedArchive packed{.bundles = {},
                       .kept = plan->kept,
                       .applicants = UntoldApplicants(plan->manifest),
                       .bytes = 0};
  if (auto added = AddBundles(**writer, *plan, bundles, old->get(), packed); !added)
    return added.GetError();
  const auto size = (*writer)->Finish(options.onProgress);
  if (!size) return size.GetError();
  packed.bytes = *size;
  return packed;
}

}  // namespace tarvo::toolkit
