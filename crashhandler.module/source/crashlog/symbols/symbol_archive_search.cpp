#include "crashlog/symbols/symbol_archive_search.h"

#include "connection.h"
#include "crashlog/base/configuration.h"
#include "crashlog/symbols/plain_name.h"
#include "tarvo/format.h"

namespace tarvo::crashhandler {
namespace {

FileService& Files() { return g_tarvo.framework->Files(); }

}  // namespace

Result<Url> FindSymbolArchive(const String& build, ArchiveDirectory& archiveDirectory) {
  if (!IsPlainName(build)) return Url();
  const String fileName = Format("@@", build, symbol_archive::kSuffix);
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
    const Url archive = (*directory)->url.Append(symbol_archive::kBuildsDirectory).Append(fileName);
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

}  // namespace tarvo::crashhandler
