#include "crashlog/symbols/symbol_cache.h"

#include <algorithm>
#include <array>
#include <chrono>

#include "connection.h"
#include "crashlog/base/configuration.h"
#include "crashlog/base/source.h"
#include "crashlog/symbols/plain_name.h"
#include "crashlog/symbols/symbol_archive_search.h"
#include "crashlog/symbols/symbol_extraction.h"
#include "tarvo/format.h"
#include "tarvo/symbol_archive.h"

namespace tarvo::crashhandler {
namespace {

/// A bundle at the top may be a single file; below it must be a directory.
struct Place {
  std::string_view directory;
  bool mayBeFile;
};
constexpr std::array kPlaces = {Place{"", true}, Place{"Release/", false}, Place{"Pebble/", false}};
constexpr std::array<std::string_view, 2> kSuffixes = {symbol_archive::kBundleSuffix,
                                                       symbol_archive::kAppleBundleSuffix};

Url FindBundle(const Url& buildDirectory, const String& moduleName) {
  for (const std::string_view suffix : kSuffixes) {
    for (const Place& place : kPlaces) {
      const Url bundle = buildDirectory.Append(Format("@@@", place.directory, moduleName, suffix));
      const FileKind kind = g_tarvo.framework->Files().Detect(bundle);
      if (kind == FileKind::Directory || (kind == FileKind::File && place.mayBeFile)) return bundle;
    }
  }
  return {};
}

}  // namespace

BundleSearch SymbolCache::GetSymbolFile(const String& moduleName, const String& build) {
  BundleSearch directory = BuildDirectory(build);
  if (!directory.bundle) return directory;
  const Url bundle = IsPlainName(moduleName) ? FindBundle(*directory.bundle, moduleName) : Url();
  if (!bundle.IsEmpty()) return {bundle};
  const Url expected = directory.bundle->Append(Format("@@", moduleName, kSuffixes.front()));
  return {Error::File(kSource.Here(), Format("Symbol file @ for @ not found.", expected, build),
                      archiveDirectory_.Root()),
          FrameOutcome::NoBundle};
}

BundleSearch SymbolCache::BuildDirectory(const String& build) {
  if (const auto* position = positions_.FindAs<std::uint64_t>(build)) return outcomes_[*position];
  positions_.Set(build, std::uint64_t{outcomes_.size()});
  return outcomes_.emplace_back(PrepareBuildDirectory(build));
}

BundleSearch SymbolCache::PrepareBuildDirectory(const String& build) {
  BundleSearch notFound = {
      Error::File(kSource.Here(), Format("Could not find symbol archive for @.", build),
                  archiveDirectory_.Root()),
      FrameOutcome::NoArchive};
  if (!IsPlainName(build)) return notFound;
  const Url directory = temporaryDirectory_.Append(build);
  if (g_tarvo.framework->Files().Detect(directory) == FileKind::Directory) return {directory};
  const Result<Url> archive = FindSymbolArchive(build, archiveDirectory_);
  if (!archive) return {archive, FrameOutcome::UnreadableArchive};
  if (archive->IsEmpty()) return notFound;
  if (Result<void> extracted = ExtractSymbolArchive(*archive, directory); !extracted)
    return {extracted.GetError(), FrameOutcome::UnreadableArchive};
  return {directory};
}

}  // namespace tarvo::crashhandler
