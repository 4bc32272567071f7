#include "crashlog/symbol_archive_search.h"

#include <algorithm>
#include <ranges>
#include <string>

#include "connection.h"
#include "crashlog/configuration.h"
#include "crashlog/plain_name.h"

namespace tarvo::crashhandler {
namespace {

constexpr std::string_view kArchiveSuffix = "_dsym.zip";

FileService& Files() { return g_tarvo.framework->Files(); }

bool IsDirectory(const DirectoryEntry& entry) {
  return (entry.attributes & kDirectoryAttribute) != 0;
}

/// Calls `visit` for the entries of `directory` until it gives a Url that is not empty, or an
/// error; this is then the outcome.
template <typename Visit>
Result<Url> FirstHit(const Url& directory, Visit visit) {
  Result<Ref<BrowseIterator>> entries = Files().Browse(directory);
  if (!entries) return entries.GetError();
  DirectoryEntry entry;
  for (;;) {
    const Result<bool> isThere = (*entries)->Next(entry);
    if (!isThere) return isThere.GetError();
    if (!*isThere) return Url();
    Result<Url> hit = visit(entry);
    if (!hit || !hit->IsEmpty()) return hit;
  }
}

}  // namespace

Result<Url> FindSymbolArchive(const String& build, const Url& archiveDirectory) {
  if (!IsPlainName(build)) return Url();
  const String fileName(build.ToStdString() + std::string(kArchiveSuffix));
  const Url direct = archiveDirectory.Append(fileName);
  if (Files().Detect(direct) == FileKind::File) return direct;
  return g_optimizeSymbolFileSearch ? SearchArchiveHierarchy(build, fileName, archiveDirectory)
                                    : SearchArchiveRecursive(fileName, archiveDirectory);
}

Result<Url> SearchArchiveHierarchy(const String& build, const String& fileName,
                                   const Url& archiveDirectory) {
  const String key = BuildSearchKey(build);
  const auto probeBuilds = [&](const DirectoryEntry& second) -> Result<Url> {
    if (!IsDirectory(second) || !second.name.Contains(key)) return Url();
    const Url archive = second.url.Append("builds").Append(fileName);
    return Files().Detect(archive) == FileKind::File ? archive : Url();
  };
  return FirstHit(archiveDirectory, [&](const DirectoryEntry& first) -> Result<Url> {
    return IsDirectory(first) ? FirstHit(first.url, probeBuilds) : Url();
  });
}

Result<Url> SearchArchiveRecursive(const String& fileName, const Url& directory) {
  return FirstHit(directory, [&](const DirectoryEntry& entry) -> Result<Url> {
    if (IsDirectory(entry)) return SearchArchiveRecursive(fileName, entry.url);
    return entry.name.EqualsIgnoringCase(fileName) ? entry.url : Url();
  });
}

String BuildSearchKey(const String& build) {
  // What stands behind the current character, last character first: erasing there is popping here,
  // so a long build takes linear time.
  constexpr std::size_t kErasedBehind = 2;
  std::string behind;
  for (const char c : std::views::reverse(build.View())) {
    if (c >= '0' && c <= '9') {
      behind += c;
    } else {
      behind.resize(behind.size() - std::min(behind.size(), kErasedBehind));
    }
  }
  std::ranges::reverse(behind);
  return String(behind);
}

}  // namespace tarvo::crashhandler
