#include "crashlog/symbol_archive_search.h"

#include <algorithm>
#include <ranges>
#include <string>

#include "connection.h"
#include "crashlog/configuration.h"
#include "crashlog/plain_name.h"
#include "tarvo/format.h"

namespace tarvo::crashhandler {
namespace {

constexpr std::string_view kArchiveSuffix = "_dsym.zip";

FileService& Files() { return g_tarvo.framework->Files(); }

}  // namespace

Result<Url> FindSymbolArchive(const String& build, ArchiveDirectory& archiveDirectory) {
  if (!IsPlainName(build)) return Url();
  const String fileName = Format("@@", build, kArchiveSuffix);
  const Url direct = archiveDirectory.Root().Append(fileName);
  if (Files().Detect(direct) == FileKind::File) return direct;
  return g_optimizeSymbolFileSearch ? SearchArchiveHierarchy(build, fileName, archiveDirectory)
                                    : SearchArchiveRecursive(fileName, archiveDirectory.Root());
}

Result<Url> SearchArchiveHierarchy(const String& build, const String& fileName,
                                   ArchiveDirectory& archiveDirectory) {
  const String key = BuildSearchKey(build);
  for (std::size_t i = 0;; ++i) {
    const Result<const DirectoryEntry*> directory = archiveDirectory.SecondLevel(i);
    if (!directory) return directory.GetError();
    if (*directory == nullptr) return Url();
    if (!(*directory)->name.Contains(key)) continue;
    const Url archive = (*directory)->url.Append("builds").Append(fileName);
    if (Files().Detect(archive) == FileKind::File) return archive;
  }
}

Result<Url> SearchArchiveRecursive(const String& fileName, const Url& directory) {
  Result<Ref<BrowseIterator>> entries = Files().Browse(directory);
  if (!entries) return entries.GetError();
  DirectoryEntry entry;
  for (;;) {
    const Result<bool> isThere = (*entries)->Next(entry);
    if (!isThere) return isThere.GetError();
    if (!*isThere) return Url();
    if ((entry.attributes & kDirectoryAttribute) != 0) {
      Result<Url> below = SearchArchiveRecursive(fileName, entry.url);
      if (!below || !below->IsEmpty()) return below;
    } else if (entry.name.EqualsIgnoringCase(fileName)) {
      return entry.url;
    }
  }
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
