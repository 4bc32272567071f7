#pragma once

#include "crashlog/symbols/archive_directory.h"
#include "tarvo/result.h"
#include "tarvo/string.h"
#include "tarvo/symbol_archive.h"
#include "tarvo/url.h"

/// Symbols are kept per build in zip archives: BUILD_dsym.zip, below one directory. All searches
/// give an empty Url when there is no such archive, and the file service's error when a directory
/// cannot be listed. Directories are taken in the order in which they list their entries; links to
/// directories are not followed.
namespace tarvo::crashhandler {

/// Finds the archive of `build`: directly in `archiveDirectory` or, where it is not there, by
/// SearchArchiveHierarchy, or by SearchArchiveRecursive when g_optimizeSymbolFileSearch is off.
///
/// `build` comes from a report: one that is no plain file name (IsPlainName) has no archive.
Result<Url> FindSymbolArchive(const String& build, ArchiveDirectory& archiveDirectory);

/// Looks for the file ARCHIVES/any directory/directory with the build's search key in its name/
/// "builds"/`fileName`. Lists two levels of directories and looks at one path for each match.
Result<Url> SearchArchiveHierarchy(const String& build, const String& fileName,
                                   ArchiveDirectory& archiveDirectory);

/// Looks through the whole tree, depth first, for an entry named `fileName` in any case of the
/// letters. The first one that is met counts.
Result<Url> SearchArchiveRecursive(const String& fileName, const Url& directory);

using symbol_archive::BuildSearchKey;

}  // namespace tarvo::crashhandler
