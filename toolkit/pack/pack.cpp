#include "toolkit/pack/pack.h"

#include <filesystem>

#include "tarvo/format.h"
#include "tarvo/symbol_archive.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/pack/archive_writer.h"
#include "toolkit/pack/elf_file.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

constexpr SourceFile kPack{"command/pack/pack"};
constexpr const char* kHierarchyRoot = "symbols";

Result<std::uint64_t> AddDebugSections(ArchiveWriter& writer, const BundleEntry& entry,
                                       const std::string& scratchDirectory) {
  auto scratch = MakeScratchFile(scratchDirectory);
  if (!scratch) return scratch.GetError();
  if (const auto written = WriteDebugSections(entry.path, scratch->get()); !written)
    return written.GetError();
  std::fseek(scratch->get(), 0, SEEK_END);
  const long size = std::ftell(scratch->get());
  std::fseek(scratch->get(), 0, SEEK_SET);
  return writer.AddFile(entry.name, {*std::move(scratch), static_cast<std::uint64_t>(size)});
}

Result<std::uint64_t> AddEntry(ArchiveWriter& writer, const BundleEntry& entry,
                               const std::string& scratchDirectory) {
  switch (entry.content) {
    case BundleEntry::Content::Directory:
      if (const auto added = writer.AddDirectory(entry.name); !added) return added.GetError();
      return std::uint64_t{0};
    case BundleEntry::Content::DebugSections:
      return AddDebugSections(writer, entry, scratchDirectory);
    case BundleEntry::Content::Whole:
      break;
  }
  const auto file = OpenRegularFile(entry.path);
  if (!file) return file.GetError();
  return writer.AddFile(entry.name, *file);
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

Result<PackedArchive> WriteArchive(const std::string& path, const std::vector<Bundle>& bundles) {
  const std::string directory = fs::path(path).parent_path().native();
  std::error_code error;
  if (fs::create_directories(directory, error); error)
    return Error::File(
        kPack.Here(),
        Format("Could not make the directory \"@\": @", SafeText(directory), error.message()),
        Url::FromSystemPath(directory));
  auto writer = ArchiveWriter::Create(path);
  if (!writer) return writer.GetError();
  PackedArchive packed;
  for (const Bundle& bundle : bundles) {
    PackedBundle& entry = packed.bundles.emplace_back(bundle.name, bundle.source, 0);
    for (const BundleEntry& file : bundle.entries) {
      const auto size = AddEntry(**writer, file, directory);
      if (!size) return size.GetError();
      entry.bytes += *size;
    }
  }
  const auto size = (*writer)->Finish();
  if (!size) return size.GetError();
  packed.bytes = *size;
  return packed;
}

}  // namespace tarvo::toolkit
